#include "update/apply_update.h"

namespace update {

int ApplyUpdate(unsigned long /*parentPid*/, const std::wstring& /*source*/,
                const std::wstring& /*destination*/) {
  return kApplyUpdateNotBuilt;
}

}  // namespace update
