#pragma once

#include <optional>
#include <string>

#include "update/update_deps.h"

namespace update {

// A computer on which every call succeeds without effect. Tests override the calls they check.
class IdleUpdateDeps : public UpdateDeps {
 public:
  service::HttpResponse SendJsonRequest(const std::wstring&, const std::wstring&,
                                        const std::wstring&) override {
    return {};
  }
  bool Download(const std::wstring&, const std::wstring&) override { return true; }
  bool IsFile(const std::wstring&) override { return true; }
  platform::HeldFile Hold(const std::wstring&) override { return {{true, 0}, nullptr, {}}; }
  platform::SystemResult WriteNew(const std::wstring&, const std::string&) override {
    return kDone;
  }
  platform::SystemResult MoveOver(const std::wstring&, const std::wstring&) override {
    return kDone;
  }
  platform::SystemResult CopyOver(const std::wstring&, const std::wstring&) override {
    return kDone;
  }
  void Remove(const std::wstring&) override {}
  platform::SystemResult ProbeReplacement(const std::wstring&) override { return kDone; }
  std::wstring WhyNotTrusted(const std::wstring&, const platform::HeldFile*) override { return {}; }
  std::optional<UpdateTry> LastTry() override { return std::nullopt; }
  bool KeepTry(const UpdateTry&) override { return true; }
  std::int64_t NowSeconds() override { return 1'800'000'000; }
  void WaitForEnd(std::uint32_t, std::chrono::milliseconds) override {}
  void Pause(std::chrono::milliseconds) override {}
  platform::SystemResult Start(const std::wstring&) override { return kDone; }
  platform::SystemResult StartHidden(const std::wstring&) override { return kDone; }
  void EndProcess() override {}
  void PrepareLogFiles() override {}
  void WriteLog(std::wstring_view) override {}

 private:
  static constexpr platform::SystemResult kDone{true, 0};
};

}  // namespace update
