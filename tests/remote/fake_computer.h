#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "remote/rustdesk_config.h"
#include "remote/rustdesk_program.h"

namespace remote {

using Events = std::vector<std::wstring>;

// A computer whose files are names and sizes, with a network that has one file to give. Notes what
// is done to it, in order: "mkdir <folder>", "delete <path>", "write <path>", "get <url> to
// <path>".
class FakeComputer {
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

  RustDeskProgramPorts ProgramPorts() {
    RustDeskProgramPorts ports;
    ports.sizeBytes = [this](const std::wstring& path) { return SizeBytes(path); };
    ports.createFolders = [this](const std::wstring& folder) { return Note(L"mkdir " + folder); };
    ports.deleteFile = [this](const std::wstring& path) {
      files.erase(path);
      return Note(L"delete " + path);
    };
    ports.download = [this](const std::wstring& url, const std::wstring& path) {
      if (downloadBytes) files[path] = *downloadBytes;
      return Note(L"get " + url + L" to " + path) && downloadBytes.has_value();
    };
    return ports;
  }

  RustDeskConfigPorts ConfigPorts() {
    RustDeskConfigPorts ports;
    ports.listFolders = [this](const std::wstring& folder) {
      return folder == L"C:\\Users" ? users : std::vector<std::wstring>{};
    };
    ports.createFolders = [this](const std::wstring& folder) { return Note(L"mkdir " + folder); };
    ports.writeFile = [this](const std::wstring& path, const std::string& bytes) {
      if (path == throwsAt) throw std::runtime_error("no access");
      if (path == refusesAt) return false;
      written[path] = bytes;
      return Note(L"write " + path);
    };
    return ports;
  }

  bool Note(const std::wstring& event) {
    events.push_back(event);
    return true;
  }

  RustDeskFolders folders;
  std::map<std::wstring, std::uint64_t> files;  // sizes in bytes
  std::vector<std::wstring> users;
  std::optional<std::uint64_t> downloadBytes;  // without: the download fails
  std::wstring throwsAt;                       // writing this file throws,
  std::wstring refusesAt;                      // this one gives false
  std::map<std::wstring, std::string> written;
  Events events;

 private:
  std::optional<std::uint64_t> SizeBytes(const std::wstring& path) const {
    const auto found = files.find(path);
    if (found == files.end()) return std::nullopt;
    return found->second;
  }
};

}  // namespace remote
