#include "update/update_check.h"

namespace update {

std::wstring CheckForUpdate(const settings::Settings& /*settings*/) {
  return L"自动更新尚未提供：本版本不检查更新。";
}

}  // namespace update
