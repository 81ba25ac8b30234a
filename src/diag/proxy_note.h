#pragma once

#include <string>
#include <utility>
#include <vector>

#include "platform/files.h"
#include "platform/mutex.h"

namespace diag {

// The entries that the program has added to one user's list and not removed yet.
struct NotedList {
  std::wstring user;  // SID; empty for the user as whom the program runs
  std::vector<std::wstring> entries;

  friend bool operator==(const NotedList&, const NotedList&) = default;
};

// Records the entries that the program has added to proxy lists. Written before a list changes and
// cleared when the entries are removed, so that the start after a crash knows which entries are
// left over and which are the user's own.
//
// Threads: any, under `lock`, which also covers each list from reading to writing it.
// Errors:  throws only std::bad_alloc. A note that cannot be read, or is cut short, is empty; after
//          a failed write, a crash leaves entries behind.
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

// The process's only note, "Client.proxy.json" beside the settings file. Windows only.
ProxyNote& RealProxyNote();

}  // namespace diag
