#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/path.h"
#include "remote/rustdesk_program.h"

namespace remote {

using Events = std::vector<std::wstring>;

// A computer whose files are names and sizes, with one file to download. Records actions in order:
// "mkdir <folder>", "delete <path>", "write <path>", "get <url> to <path>". Calls that do not
// concern files succeed without effect.
class FakeComputer : public RemoteDesktopDeps {
 public:
  FakeComputer() {
    folders.programFiles = L"C:\\PF";
    folders.programFilesX86 = L"C:\\PF86";
    folders.localAppData = L"C:\\Users\\li\\Local";
    folders.roamingAppData = L"C:\\Users\\li\\AppData\\Roaming";
    folders.program = L"E:\\tools";
    folders.runtime = L"C:\\Users\\li\\Local\\Velmarine\\Runtime";
    folders.windows = L"C:\\Windows";
  }

  service::HttpResponse SendJsonRequest(const std::wstring&, const std::wstring&,
                                        const std::wstring&) override {
    return {};
  }
  bool Download(const std::wstring& url, const std::wstring& path) override {
    if (downloadBytes) files[path] = *downloadBytes;
    return Note(L"get " + url + L" to " + path) && downloadBytes.has_value();
  }
  void OnRequestFailed() override {}
  std::optional<std::uint64_t> SizeBytes(const std::wstring& path) override {
    const auto found = files.find(path);
    if (found == files.end()) return std::nullopt;
    return found->second;
  }
  bool CreateFolders(const std::wstring& folder) override { return Note(L"mkdir " + folder); }
  bool Delete(const std::wstring& path) override {
    files.erase(path);
    return Note(L"delete " + path);
  }
  std::vector<std::wstring> ListFolders(const std::wstring& folder) override {
    return folder == L"C:\\Users" ? users : std::vector<std::wstring>{};
  }
  void WriteConfigFile(const std::wstring& path, const std::string& bytes) override {
    Note(L"mkdir " + platform::ParentFolder(path));
    if (path == throwsAt) throw std::runtime_error("no access");
    if (path == refusesAt) return;
    written[path] = bytes;
    Note(L"write " + path);
  }
  void Launch(const std::wstring&, std::span<const std::wstring>) override {}
  bool CopyPassword(const std::wstring&) override { return true; }
  void StartPasswordPaste(const std::wstring&, const std::wstring&, const std::wstring&) override {}

  bool Note(const std::wstring& event) {
    events.push_back(event);
    return true;
  }

  std::map<std::wstring, std::uint64_t> files;  // sizes in bytes
  std::vector<std::wstring> users;
  std::optional<std::uint64_t> downloadBytes;  // without a value the download fails
  std::wstring throwsAt;                       // writing this file throws
  std::wstring refusesAt;                      // this file cannot be written
  std::map<std::wstring, std::string> written;
  Events events;
};

}  // namespace remote
