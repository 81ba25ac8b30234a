#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "platform/safe_files.h"
#include "platform/system_error.h"
#include "service/http_transport.h"
#include "update/trusted_update.h"
#include "update/update_records.h"

namespace update {

// Everything that an update does to the computer: the program's own operations, or a fake in tests.
//
// The running program asks the service, downloads and starts a replacement process
// (update_check.h); that process swaps the files (apply_update.h). Called on one thread at a time.
class UpdateDeps {
 public:
  std::wstring programPath;  // of the running program; empty when the system does not know it
  std::uint32_t processId = 0;
  std::wstring currentVersion;
  std::wstring downloadTarget;  // a path; empty without a temporary folder
  std::stop_token closing;      // requested when the program ends

  virtual ~UpdateDeps() = default;

  // The service, as in service/http_transport.h.
  virtual service::HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                                                const std::wstring& body) = 0;
  virtual bool Download(const std::wstring& url, const std::wstring& target) = 0;

  // Files, as in platform/safe_files.h.
  virtual bool IsFile(const std::wstring& path) = 0;  // false for a folder
  virtual platform::HeldFile Hold(const std::wstring& path) = 0;
  virtual platform::SystemResult WriteNew(const std::wstring& path, const std::string& bytes) = 0;
  virtual platform::SystemResult MoveOver(const std::wstring& from, const std::wstring& to) = 0;
  virtual platform::SystemResult CopyOver(const std::wstring& from, const std::wstring& to) = 0;
  virtual void Remove(const std::wstring& path) = 0;
  // Whether the running program could be replaced by the file `replacement`; an empty path asks
  // before there is such a file.
  virtual platform::SystemResult ProbeReplacement(const std::wstring& replacement) = 0;

  // Why the file at `path` may not become the program; empty when it may. `held` is the file if the
  // caller holds it already.
  virtual std::wstring WhyNotTrusted(const std::wstring& path, const platform::HeldFile* held) = 0;

  // The record of the last attempt. KeepTry() returns false when it could not be stored.
  virtual std::optional<UpdateTry> LastTry() = 0;
  virtual bool KeepTry(const UpdateTry& record) = 0;
  virtual std::int64_t NowSeconds() = 0;  // since 1970, UTC

  // Processes. WaitForEnd() returns once the process has ended or `limit` has passed, and at once
  // when there is no such process. EndProcess() does not return, except in a fake.
  virtual void WaitForEnd(std::uint32_t id, std::chrono::milliseconds limit) = 0;
  virtual void Pause(std::chrono::milliseconds duration) = 0;
  virtual platform::SystemResult Start(const std::wstring& commandLine) = 0;
  virtual platform::SystemResult StartHidden(const std::wstring& commandLine) = 0;
  virtual void EndProcess() = 0;

  virtual void PrepareLogFiles() = 0;  // the client's, which the replacement process may create
  virtual void WriteLog(std::wstring_view message) = 0;

 protected:
  UpdateDeps() = default;
  UpdateDeps(const UpdateDeps&) = default;
  UpdateDeps& operator=(const UpdateDeps&) = default;
};

// The program's own. Windows only.
class RealUpdateDeps : public UpdateDeps {
 public:
  // `whenClosing` ends requests and downloads.
  explicit RealUpdateDeps(ProgramIdentity self, const std::stop_token& whenClosing = {});

  service::HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                                        const std::wstring& body) override;
  bool Download(const std::wstring& url, const std::wstring& target) override;
  bool IsFile(const std::wstring& path) override;
  platform::HeldFile Hold(const std::wstring& path) override;
  platform::SystemResult WriteNew(const std::wstring& path, const std::string& bytes) override;
  platform::SystemResult MoveOver(const std::wstring& from, const std::wstring& to) override;
  platform::SystemResult CopyOver(const std::wstring& from, const std::wstring& to) override;
  void Remove(const std::wstring& path) override;
  platform::SystemResult ProbeReplacement(const std::wstring& replacement) override;
  std::wstring WhyNotTrusted(const std::wstring& path, const platform::HeldFile* held) override;
  std::optional<UpdateTry> LastTry() override;
  bool KeepTry(const UpdateTry& record) override;
  std::int64_t NowSeconds() override;
  void WaitForEnd(std::uint32_t id, std::chrono::milliseconds limit) override;
  void Pause(std::chrono::milliseconds duration) override;
  platform::SystemResult Start(const std::wstring& commandLine) override;
  platform::SystemResult StartHidden(const std::wstring& commandLine) override;
  void EndProcess() override;
  void PrepareLogFiles() override {}  // the replacement process overrides it
  void WriteLog(std::wstring_view message) override;

 private:
  const ProgramIdentity self_;
};

}  // namespace update
