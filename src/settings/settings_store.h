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

// The one home of the settings: window and jobs read, change and save the record through it.
//
// The window changes the record itself. A job works on a copy (JobSettings); what it has brought so
// far is merged in (MergeSettings) wherever the record is read or written, and becomes part of it
// when the job ends. A save that fails leaves the record as it is: it counts, and the next save
// tries again.
//
// Threads: any. Files are written under the lock, so that saves never overlap.
class SettingsStore {
 public:
  // `initial` stands until Load().
  SettingsStore(SettingsFile file, Settings initial);

  // Reads the file; at start, before anything else.
  void Load() EXCLUDES(lock_);

  // The record as it stands, with what a running job has brought.
  [[nodiscard]] Settings Read() const EXCLUDES(lock_);

  // For the window: changes its record, without what a running job has brought. `change` runs under
  // the lock.
  void Edit(const std::function<void(Settings& settings)>& change) EXCLUDES(lock_);
  void Save() EXCLUDES(lock_);

  // The lines that have not been taken yet: a file restored or set aside, and a save that failed,
  // once for each cause until a save succeeds.
  [[nodiscard]] std::vector<std::wstring> TakeReports() EXCLUDES(lock_);
  // The line that says why the record is not on the disk; empty when the last save succeeded.
  [[nodiscard]] std::wstring Unsaved() const EXCLUDES(lock_);

 private:
  friend class JobSettings;
  struct RunningJob {
    Settings base;     // the record when the job began
    Settings brought;  // the job's copy at its last save
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
  std::set<std::wstring> toldFailures_ GUARDED_BY(lock_);
};

// A job's copy of the record, from its beginning to its end; one at a time. The end takes over what
// the job has changed, and saves.
//
// Threads: made where the job is started, so that what the window does from then on counts as
// later;
//          used and ended on the job's thread. The store must outlive it.
class JobSettings {
 public:
  explicit JobSettings(SettingsStore& store) : record(store.BeginJob()), store_(store) {}
  ~JobSettings() { store_.EndJob(record); }
  JobSettings(const JobSettings&) = delete;
  JobSettings& operator=(const JobSettings&) = delete;

  // Brings what the job has changed so far to the disk, for what must survive a sudden end of the
  // program in mid-job.
  void Save() { store_.SaveFromJob(record); }

  Settings record;

 private:
  SettingsStore& store_;
};

}  // namespace settings
