#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "text/utf8.h"
#include "update/apply_update.h"
#include "update/idle_update_deps.h"
#include "update/update_check.h"

namespace update {
namespace {

// Any reply: only a newer version from an absolute address is downloaded, only an installable
// download whose attempt was recorded is started, and the process ends only after all of them.
class CheckedDeps : public IdleUpdateDeps {
 public:
  explicit CheckedDeps(const std::string& reply) : reply_(text::FromUtf8(reply)) {
    programPath = L"program";
    currentVersion = L"1.0.4";
    downloadTarget = L"target";
  }

  service::HttpResponse SendJsonRequest(const std::wstring&, const std::wstring&,
                                        const std::wstring&) override {
    return {200, reply_};
  }
  bool Download(const std::wstring& url, const std::wstring& target) override {
    if (isDownloaded || url.find(L"://") == std::wstring::npos || target != L"target") std::abort();
    isDownloaded = true;
    return true;
  }
  std::wstring WhyNotTrusted(const std::wstring& path, const platform::HeldFile*) override {
    if (!isDownloaded || path != L"target") std::abort();
    isTrusted_ = true;
    return {};
  }
  bool KeepTry(const UpdateTry& record) override {
    if (!isTrusted_ || record.version.empty()) std::abort();
    isKept_ = true;
    return true;
  }
  platform::SystemResult StartHidden(const std::wstring& commandLine) override {
    if (!isKept_ || isStarted_) std::abort();
    if (commandLine != UpdaterCommandLine(L"program.updater.exe", 0, L"target", L"program")) {
      std::abort();
    }
    isStarted_ = true;
    return {true, 0};
  }
  void Remove(const std::wstring&) override { std::abort(); }
  void EndProcess() override {
    if (!isStarted_) std::abort();
    isEnded = true;
  }

  bool isDownloaded = false;
  bool isEnded = false;

 private:
  const std::wstring reply_;
  bool isTrusted_ = false;
  bool isKept_ = false;
  bool isStarted_ = false;
};

void Run(const std::string& reply) {
  CheckedDeps deps(reply);
  try {
    const std::wstring line = CheckForUpdate(settings::Settings(), deps);
    if (line.empty() != deps.isEnded) std::abort();
  } catch (const std::runtime_error&) {
    if (deps.isDownloaded) std::abort();
  }
}

}  // namespace
}  // namespace update

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  update::Run({reinterpret_cast<const char*>(data), sizeBytes});
  return 0;
}
