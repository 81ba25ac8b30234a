#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/files.h"

namespace platform {

// Thrown where MemoryFiles pretends that the process was killed.
struct Killed {};

// Files in memory. A write takes three steps, because a real one may be cut short: truncate the
// file, write half of it, write all of it. The process can be killed before each step and before
// the write returns.
class MemoryFiles : public FileDeps {
 public:
  FileContent Read(const std::wstring& path) override {
    const auto found = files.find(path);
    if (found == files.end()) return {};
    if (path == unreadable) return {true, std::nullopt};
    return {true, found->second};
  }

  std::wstring Write(const std::wstring& path, const std::string& bytes) override {
    const std::wstring reason = refuse ? refuse(path) : std::wstring();
    if (!reason.empty()) return reason;
    written.push_back(path);
    LiveOn();
    files[path].clear();
    LiveOn();
    files[path] = bytes.substr(0, bytes.size() / 2);
    LiveOn();
    files[path] = bytes;
    LiveOn();
    if (onWritten) onWritten(path);
    return doubt ? doubt(path) : std::wstring();
  }

  void Delete(const std::wstring& path) override { files.erase(path); }

  std::vector<std::wstring> ListFolders(const std::wstring& folder) override {
    return List(folder, true);
  }
  std::vector<std::wstring> ListFiles(const std::wstring& folder) override {
    return List(folder, false);
  }

  std::map<std::wstring, std::string> files;
  std::vector<std::wstring> written;  // the path of each started write
  std::wstring unreadable;            // the path of a file that exists but cannot be read
  std::function<std::wstring(const std::wstring& path)> refuse;  // returns a reason, or nothing
  // Returns a reason after the whole write: the file reads well, but the disk may not have it.
  std::function<std::wstring(const std::wstring& path)> doubt;
  std::function<void(const std::wstring& path)> onWritten;
  int stepsToLive = -1;  // until the process is killed; negative: never

 private:
  // Sorted by name, without duplicates.
  [[nodiscard]] std::vector<std::wstring> List(const std::wstring& folder,
                                               bool wantsFolders) const {
    const std::wstring start = folder + L"\\";
    std::vector<std::wstring> names;
    for (const auto& [path, bytes] : files) {
      if (!path.starts_with(start)) continue;
      const std::size_t end = path.find(L'\\', start.size());
      if ((end != std::wstring::npos) != wantsFolders) continue;
      const std::wstring name = path.substr(start.size(), end - start.size());
      if (names.empty() || names.back() != name) names.push_back(name);
    }
    return names;
  }

  void LiveOn() {
    if (stepsToLive == 0) throw Killed{};
    if (stepsToLive > 0) --stepsToLive;
  }
};

}  // namespace platform
