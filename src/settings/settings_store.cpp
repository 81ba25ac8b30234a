#include "settings/settings_store.h"

#include <utility>

namespace settings {
namespace {

constexpr wchar_t kNotSaved[] = L"警告：设置未能保存：";

}  // namespace

using platform::MutexLock;

SettingsStore::SettingsStore(SettingsFile file, Settings initial)
    : file_(std::move(file)), record_(std::move(initial)) {}

void SettingsStore::Load() {
  const MutexLock held(lock_);
  std::wstring report = file_.Load(record_);
  if (!report.empty()) reports_.push_back(std::move(report));
}

Settings SettingsStore::Read() const {
  const MutexLock held(lock_);
  // What a job has saved half-way counts at once.
  return Merged();
}

void SettingsStore::Edit(const std::function<void(Settings& settings)>& change) {
  const MutexLock held(lock_);
  // Without the job's share: merged in here, it would count as the window's own change.
  change(record_);
}

void SettingsStore::Save() {
  const MutexLock held(lock_);
  SaveMerged();
}

std::vector<std::wstring> SettingsStore::TakeReports() {
  const MutexLock held(lock_);
  return std::exchange(reports_, {});
}

std::wstring SettingsStore::Unsaved() const {
  const MutexLock held(lock_);
  return unsaved_;
}

Settings SettingsStore::BeginJob() {
  const MutexLock held(lock_);
  // Both start from the same record, so a job that changes nothing merges nothing.
  job_ = RunningJob{record_, record_};
  return record_;
}

void SettingsStore::SaveFromJob(const Settings& copy) {
  const MutexLock held(lock_);
  job_->saved = copy;
  SaveMerged();
}

void SettingsStore::EndJob(const Settings& copy) {
  const MutexLock held(lock_);
  job_->saved = copy;
  // From here on every edit of the window counts as later than the job.
  record_ = Merged();
  job_.reset();  // before the save, which would merge the job once more
  SaveMerged();
}

Settings SettingsStore::Merged() const {
  return job_ ? MergeSettings(job_->base, record_, job_->saved) : record_;
}

void SettingsStore::SaveMerged() {
  SettingsFile::Saved saved = file_.Save(Merged());
  if (!saved.report.empty()) reports_.push_back(std::move(saved.report));
  if (saved.failure.empty()) {
    unsaved_.clear();
    // After a success the same cause is reported again.
    reportedFailures_.clear();
    return;
  }
  unsaved_ = kNotSaved + saved.failure;
  // A retried connection saves every few seconds; the same line each time would flood the log.
  if (reportedFailures_.insert(std::move(saved.failure)).second) reports_.push_back(unsaved_);
}

}  // namespace settings
