#include "service/device_resolve.h"

namespace service {

std::wstring ResolveDevice(const settings::Settings& /*settings*/) {
  return L"获取现场端网段功能尚未提供。";
}

}  // namespace service
