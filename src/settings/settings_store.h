#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/mutex.h"
#include "settings/settings.h"
#include "settings/settings_file.h"

namespace settings {

// Owns the settings. Window and jobs read, change and save the record through it.
//
// The window changes the record itself. A job works on a copy (JobSettings), whose changes are
// merged (MergeSettings) into every read and save and become part of the record when the job ends.
// A failed save keeps the record; the next save tries again.
//
// Threads: any. Files are written under the lock, so that saves never overlap.
class SettingsStore {
 public:
  // `initial` is the record until Load().
  SettingsStore(SettingsFile file, Settings initial);

  // Reads the file; called once, at the start.
  void Load() EXCLUDES(lock_);

  // The record, merged with the changes of a running job.
  [[nodiscard]] Settings Read() const EXCLUDES(lock_);

  // For the window: changes the record, without the changes of a running job. `change` runs under
  // the lock.
  void Edit(const std::function<void(Settings& settings)>& change) EXCLUDES(lock_);
  void Save() EXCLUDES(lock_);

  // Removes and returns the new lines: a file was restored or set aside, or a save failed (once for
  // each cause until a save succeeds).
  [[nodiscard]] std::vector<std::wstring> TakeReports() EXCLUDES(lock_);
  // Why the record is not on the disk; empty when the last save succeeded.
  [[nodiscard]] std::wstring Unsaved() const EXCLUDES(lock_);

 private:
  friend class JobSettings;
  struct RunningJob {
    Settings base;   // the record when the job started
    Settings saved;  // the job's copy at its last save
  };

  Settings BeginJob() EXCLUDES(lock_);
  void SaveFromJob(const Settings& copy) EXCLUDES(lock_);
  void EndJob(const Settings& copy) EXCLUDES(lock_);
  Settings Merged() const REQUIRES(lock_);
  void SaveMerged() REQUIRES(lock_);

  mutable platform::Mutex lock_;
  SettingsFile file_ GUARDED_BY(lock_);
  Settings record_ GUARDED_BY(lock_);
  std::optional<RunningJob> job_ GUARDED_BY(lock_);
  std::vector<std::wstring> reports_ GUARDED_BY(lock_);
  std::wstring unsaved_ GUARDED_BY(lock_);
  std::set<std::wstring> reportedFailures_ GUARDED_BY(lock_);
};

// A job's copy of the record; one at a time. Its destructor merges the job's changes and saves.
//
// Threads: constructed by the window when it starts the job, so that its later changes count as
//          later; used and destroyed on the job's thread. The store must outlive it.
class JobSettings {
 public:
  explicit JobSettings(SettingsStore& store) : record(store.BeginJob()), store_(store) {}
  ~JobSettings() { store_.EndJob(record); }
  JobSettings(const JobSettings&) = delete;
  JobSettings& operator=(const JobSettings&) = delete;

  // Saves the job's changes so far, for those that must survive a crash during the job.
  void Save() { store_.SaveFromJob(record); }

  Settings record;

 private:
  SettingsStore& store_;
};

}  // namespace settings
