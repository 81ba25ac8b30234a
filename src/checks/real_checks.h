#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "checks/check_report.h"
#include "update/trusted_update.h"

namespace checks {

// The program's part of a report.
struct ReportRequest {
  update::ProgramIdentity self;
  // The driver files in the program's own file.
  struct CarriedFile {
    std::wstring name;
    std::span<const std::byte> bytes;
  };
  std::vector<CarriedFile> carriedFiles;
  bool (*isClientRunning)() = nullptr;  // on this computer; any thread
  // The running client; empty for a run that only checks.
  struct Client {
    std::wstring logPath;
    std::wstring record;     // its settings, from WriteSettingsText()
    std::wstring serverUrl;  // of the form
  };
  std::optional<Client> client;
  std::wstring workingFolder;  // the parent of a client's log folder
};

// The checks, files and folders of this computer. Windows only; the result may be used on any
// thread.
ReportDeps RealReportDeps(const ReportRequest& request);

// Opens the file with the user's program for its kind. Returns at once; failures are not reported.
// Windows only; any thread.
void ShowFile(const std::wstring& path);

}  // namespace checks
