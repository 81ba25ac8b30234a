#include "remote/remote_desktop.h"

namespace remote {

std::wstring StartRemoteDesktop(const settings::Settings& /*settings*/) {
  return L"远程桌面功能尚未提供。";
}

}  // namespace remote
