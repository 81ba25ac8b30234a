#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>

#include "platform/system_error.h"
#include "service/http_transport.h"
#include "settings/json.h"
#include "settings/settings.h"
#include "update/trusted_update.h"
#include "update/update_tries.h"

namespace update {

// What the service says of newer programs. What is missing, or of another kind, is false or empty.
struct UpdateOffer {
  bool isAvailable = false;
  std::wstring version;
  std::wstring downloadUrl;  // absolute, or a path on the service
  bool isForced = false;
};

// From a reply's `data`, of whatever kind that is. Pure; any thread.
UpdateOffer ReadUpdateOffer(const settings::JsonValue& data);

// What the check acts through: the program's own operations, or fakes in tests.
struct CheckPorts {
  std::wstring currentVersion;  // of the program that asks
  std::wstring downloadTarget;  // a path; empty when there is no temporary folder
  service::JsonRequester sendJsonRequest;
  service::Downloader downloadFile;
  // Whether the running program could be replaced by one of so many bytes.
  std::function<platform::SystemResult(std::uint64_t sizeBytes)> probeReplacement;
  std::function<std::uint64_t(const std::wstring& path)> sizeBytes;
  // Why the downloaded file may not become the program; empty when it may.
  std::function<std::wstring(const std::wstring& path)> whyNotTrusted;
  std::function<std::int64_t()> nowSeconds;  // since 1970, UTC
  std::function<std::optional<UpdateTry>()> lastTry;
  std::function<bool(const UpdateTry& record)> keepTry;  // false when it could not be kept
  std::function<bool(const std::wstring& downloadedPath)> startUpdater;
  std::function<void(const std::wstring& path)> deleteFile;
  std::function<void()> endProcess;  // does not return in the program
  std::stop_token closing;           // requested when the program ends
};

// Asks the service for a newer version, once; returns one line for the log. A forced update is
// installed at once and without asking: it is downloaded, the replacement process is started, and
// the running program ends from one moment to the next, on this thread. Any failure leaves the
// program as it was; so does the program's closing before the replacement process is started, and
// nobody reads the line then.
//
// The program never ends for an update that cannot succeed: not where its file cannot be replaced,
// not for a file that the build does not trust, and not twice within a day for the same version,
// which a file that reports an older one would otherwise bring about at every start. Throws
// std::runtime_error when the service cannot be reached or answers with broken JSON. Blocks; any
// thread.
std::wstring CheckForUpdate(const settings::Settings& settings, const CheckPorts& ports);

// The address at which the service is asked for a version newer than `version`. Pure.
std::wstring UpdateQuestion(const std::wstring& serverUrl, const std::wstring& version);

// The program's own. Windows only.
CheckPorts RealCheckPorts(const ProgramIdentity& self, const std::stop_token& closing);

}  // namespace update
