#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "text/utf8.h"
#include "update/update_check.h"

namespace update {
namespace {

// Any reply: nothing is downloaded but a newer version from an absolute address, nothing is started
// but a download that may be installed and whose attempt was kept, and the process ends only behind
// all of them.
void Run(const std::string& reply) {
  bool isDownloaded = false;
  bool isTrusted = false;
  bool isKept = false;
  bool isStarted = false;
  bool isEnded = false;
  CheckPorts ports;
  ports.currentVersion = L"1.0.4";
  ports.downloadTarget = L"target";
  ports.sendJsonRequest = [&](const auto&, const auto&, const auto&) {
    return service::HttpResponse{200, text::FromUtf8(reply)};
  };
  ports.downloadFile = [&](const std::wstring& url, const std::wstring& target) {
    if (isDownloaded || url.find(L"://") == std::wstring::npos || target != L"target") std::abort();
    isDownloaded = true;
    return true;
  };
  ports.probeReplacement = [](std::uint64_t) { return platform::SystemResult{true, 0}; };
  ports.sizeBytes = [](const std::wstring&) { return 1U; };
  ports.whyNotTrusted = [&](const std::wstring& path) {
    if (!isDownloaded || path != L"target") std::abort();
    isTrusted = true;
    return std::wstring();
  };
  ports.nowSeconds = [] { return 1'800'000'000; };
  ports.lastTry = [] { return std::nullopt; };
  ports.keepTry = [&](const UpdateTry& record) {
    if (!isTrusted || record.version.empty()) std::abort();
    isKept = true;
    return true;
  };
  ports.startUpdater = [&](const std::wstring& path) {
    if (!isKept || isStarted || path != L"target") std::abort();
    isStarted = true;
    return true;
  };
  ports.deleteFile = [](const std::wstring&) { std::abort(); };
  ports.endProcess = [&] {
    if (!isStarted) std::abort();
    isEnded = true;
  };
  try {
    const std::wstring line = CheckForUpdate(settings::Settings(), ports);
    if (line.empty() != isEnded) std::abort();
  } catch (const std::runtime_error&) {
    if (isDownloaded) std::abort();
  }
}

}  // namespace
}  // namespace update

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  update::Run({reinterpret_cast<const char*>(data), sizeBytes});
  return 0;
}
