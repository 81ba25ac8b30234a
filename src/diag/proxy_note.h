#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "platform/mutex.h"

namespace diag {

// What the program has added to one user's list, and not taken off again.
struct NotedList {
  std::wstring user;  // his SID; empty: the one as whom the program runs
  std::vector<std::wstring> entries;

  friend bool operator==(const NotedList&, const NotedList&) = default;
};

// The program's own note of the entries that it has put on proxy lists. It is written before a list
// is changed and goes when the entries have gone, so that a start after a sudden end knows which
// entries nobody took off, and which of the same networks the user had there himself.
//
// Threads: any, under `lock`, which is held from a list's reading to its writing, too.
// Errors:  none but exhausted memory. What cannot be read, or is cut short, is an empty note; one
//          that cannot be written is one less after a sudden end.
class ProxyNote {
 public:
  // `files` must outlive the note.
  ProxyNote(std::wstring path, platform::FileDeps& files) : path_(std::move(path)), files_(files) {}

  [[nodiscard]] std::vector<NotedList> Read() const REQUIRES(lock);
  void Remember(const std::wstring& user, const std::vector<std::wstring>& entries) REQUIRES(lock);
  void Forget(const std::wstring& user, const std::vector<std::wstring>& entries) REQUIRES(lock);

  platform::Mutex lock;

 private:
  void Write(const std::vector<NotedList>& lists) REQUIRES(lock);

  const std::wstring path_;
  platform::FileDeps& files_;
};

// The one note of the process, "Client.proxy.json" beside the settings file. Windows only.
ProxyNote& RealProxyNote();

}  // namespace diag
