#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "checks/check_report.h"
#include "update/trusted_update.h"

namespace checks {

// What the report needs of the program that makes it.
struct ReportRequest {
  update::ProgramIdentity self;
  // The driver files that the program carries; they live as long as it does.
  struct CarriedFile {
    std::wstring name;
    std::span<const std::byte> bytes;
  };
  std::vector<CarriedFile> carriedFiles;
  bool (*isClientRunning)() = nullptr;  // on this computer; any thread
  // Of the client that makes it; nothing for a run that only checks.
  struct Client {
    std::wstring logPath;
    std::wstring record;     // its settings as WriteSettingsText() writes them
    std::wstring serverUrl;  // of the form
  };
  std::optional<Client> client;
  std::wstring workingFolder;  // a client started here would log below it
};

// The checks, files and folders of this computer. Windows only; what it returns may be used on any
// thread.
ReportDeps RealReportDeps(const ReportRequest& request);

// Opens the file with the user's program for its kind. Returns at once; failures are not reported.
// Windows only; any thread.
void ShowFile(const std::wstring& path);

}  // namespace checks
