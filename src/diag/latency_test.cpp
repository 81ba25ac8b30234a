#include "diag/latency_test.h"

namespace diag {

std::wstring RunLatencyTest(const settings::Settings& /*settings*/) {
  return L"延迟测试功能尚未提供。";
}

}  // namespace diag
