#include "settings/settings_file.h"

#include <algorithm>
#include <array>
#include <cwchar>
#include <stdexcept>
#include <utility>

#include "platform/path.h"
#include "settings/json.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace settings {
namespace {

constexpr std::wstring_view kExtension = L".json";
constexpr wchar_t kGrantName[] = L"Client.connection.json";

constexpr wchar_t kDefaults[] =
    L"警告：设置文件无法读取，已使用默认设置；原文件将在首次保存前另行保留。";
constexpr wchar_t kRestored[] =
    L"警告：设置文件无法读取，已恢复上次保存的设置；原文件将在首次保存前另行保留。";
constexpr wchar_t kRestoredFromEmpty[] = L"警告：设置文件为空，已恢复上次保存的设置。";
constexpr wchar_t kSetAside[] = L"警告：无法读取的设置文件已另行保留：";
constexpr wchar_t kNotSetAside[] = L"原设置文件未能另行保留，";
constexpr wchar_t kUnreadable[] = L"原设置文件无法读取：";

// "Client.settings.json" with `suffix` before its extension.
std::wstring Beside(std::wstring_view path, std::wstring_view suffix) {
  if (path.ends_with(kExtension)) path.remove_suffix(kExtension.size());
  return std::wstring(path).append(suffix).append(kExtension);
}

// The document of a trusted file, otherwise empty. The remainder of a file that lost its front may
// begin with the brace of a profile: that is an object, too, but with more text after it.
std::optional<JsonValue> ReadWhole(const platform::FileContent& content) {
  if (!content.bytes) return std::nullopt;
  const std::wstring text = text::FromMarkedBytes(*content.bytes);
  try {
    std::size_t end = 0;
    JsonValue document = ReadJsonValue(text, end);
    if (document.AsObject() == nullptr) return std::nullopt;
    const bool isAll =
        std::all_of(text.begin() + static_cast<std::ptrdiff_t>(end), text.end(), text::IsSpace);
    // With a list of profiles it is the whole record, whatever an editor left behind it; a profile
    // has no such list.
    if (!isAll && FindJsonMember(document, L"siteProfiles") == nullptr) return std::nullopt;
    return document;
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

void NeedEngineerId(Settings& settings) {
  if (settings.engineerId.empty()) settings.engineerId = MakeEngineerId();
}

}  // namespace

SettingsFile::SettingsFile(std::wstring path, platform::FileDeps& files, std::wstring (*time)())
    : path_(std::move(path)),
      lastPath_(Beside(path_, L".last")),
      grantPath_(platform::JoinPath(platform::ParentFolder(path_), kGrantName)),
      files_(files),
      time_(time) {}

std::wstring SettingsFile::Load(Settings& settings) const {
  const platform::FileContent content = files_.Read(path_);
  // A first start, even beside a second copy.
  if (!content.exists) {
    settings.engineerId = MakeEngineerId();
    return {};
  }
  std::wstring report;
  if (const std::optional<JsonValue> document = ReadWhole(content)) {
    ReadSettingsDocument(*document, settings);
  } else {
    report = LoadUntrusted(content, settings);
  }
  // Last, because it depends on the connection in the settings.
  LoadGrant(settings);
  return report;
}

std::wstring SettingsFile::LoadUntrusted(const platform::FileContent& content,
                                         Settings& settings) const {
  const bool empty = content.bytes && content.bytes->empty();
  if (const std::optional<JsonValue> last = ReadWhole(files_.Read(lastPath_))) {
    ReadSettingsDocument(*last, settings);
    return empty ? kRestoredFromEmpty : kRestored;
  }
  // Nothing was saved before, so there is nothing to report.
  if (empty) return {};
  try {
    ReadSettingsText(text::FromMarkedBytes(content.bytes.value_or("")), settings);
  } catch (const std::runtime_error&) {
    NeedEngineerId(settings);
  }
  return kDefaults;
}

// Ignores the grant of an earlier connection than the one in the settings.
void SettingsFile::LoadGrant(Settings& settings) const {
  const std::optional<JsonValue> document = ReadWhole(files_.Read(grantPath_));
  if (!document) return;
  GrantedConnection granted = ReadGrantedConnection(*document);
  if (granted.connectionId == settings.connectionId) settings.granted = std::move(granted);
}

SettingsFile::Saved SettingsFile::Save(const Settings& settings) {
  Saved saved;
  const std::string bytes = text::ToUtf8(WriteSettingsText(settings));
  const platform::FileContent before = files_.Read(path_);
  // Before the settings, which refer to it: they must never name a missing grant.
  const std::wstring grantFailure = SaveGrant(settings);
  // Skips identical contents: every write is a moment in which a crash costs a restore.
  if (before.bytes != bytes || unconfirmed_.contains(path_)) {
    SecureWhatIsThere(before, bytes, saved);
    if (saved.failure.empty()) saved.failure = WriteFile(path_, bytes);
    if (!saved.failure.empty()) return saved;
  }
  // On failure, the next save writes the copy before it touches the file.
  WriteIfOther(lastPath_, bytes);
  // A grant that cannot be written holds nothing back; the settings are saved by now.
  saved.failure = grantFailure;
  return saved;
}

// The next write truncates the file, so its contents must be elsewhere before.
void SettingsFile::SecureWhatIsThere(const platform::FileContent& content, const std::string& next,
                                     Saved& saved) {
  if (!content.exists) return;
  if (!content.bytes) {
    // Writing would destroy what could not be copied.
    saved.failure = kUnreadable + path_;
  } else if (ReadWhole(content)) {
    saved.failure = WriteIfOther(lastPath_, *content.bytes);
  } else if (!content.bytes->empty()) {
    SetAside(*content.bytes, saved);
    // Otherwise no file would be whole while this one is written.
    if (saved.failure.empty() && !ReadWhole(files_.Read(lastPath_))) WriteIfOther(lastPath_, next);
  }
}

// Copies instead of renaming: without the file, a start would count as the first one. Besides,
// another program may hold the file in a way that forbids renaming.
void SettingsFile::SetAside(const std::string& bytes, Saved& saved) {
  // If the file cannot be overwritten afterwards, every save finds it damaged again, which is every
  // few seconds while a connection is retried.
  if (!keptPath_.empty() && files_.Read(keptPath_).bytes == bytes) return;
  const std::wstring base = L".damaged-" + time_();
  std::wstring kept = Beside(path_, base);
  // Several within a second, or a clock that was set back.
  for (int number = 2; files_.Read(kept).exists; ++number) {
    kept = Beside(path_, base + L"-" + std::to_wstring(number));
  }
  const std::wstring failure = WriteFile(kept, bytes);
  if (failure.empty()) {
    saved.report = kSetAside + kept;
    keptPath_ = kept;
  } else {
    saved.failure = kNotSetAside + failure;
  }
}

std::wstring SettingsFile::SaveGrant(const Settings& settings) {
  const GrantedConnection& granted = settings.granted;
  // The grant of an earlier connection must not replace the one on the disk.
  if (granted.connectionId.empty() || granted.connectionId != settings.connectionId) return {};
  return WriteIfOther(grantPath_, text::ToUtf8(WriteGrantedConnection(granted)));
}

std::wstring SettingsFile::WriteIfOther(const std::wstring& path, const std::string& bytes) {
  // Most saves change only one of the files.
  if (!unconfirmed_.contains(path) && files_.Read(path).bytes == bytes) return {};
  return WriteFile(path, bytes);
}

std::wstring SettingsFile::WriteFile(const std::wstring& path, const std::string& bytes) {
  // Until the disk confirms the write, a file that reads back well may be in memory only.
  unconfirmed_.insert(path);
  const std::wstring reason = files_.Write(path, bytes);
  if (!reason.empty()) return reason + L"（" + path + L"）";
  unconfirmed_.erase(path);
  return {};
}

std::wstring FileTime(const platform::LocalTime& time) {
  std::array<wchar_t, 64> text{};
  std::swprintf(text.data(), text.size(), L"%04d%02d%02d_%02d%02d%02d", time.year, time.month,
                time.day, time.hour, time.minute, time.second);
  return text.data();
}

std::wstring RuntimeFolderBelow(std::wstring_view localAppData, std::wstring_view temporary) {
  return platform::JoinPath(localAppData.empty() ? temporary : localAppData, L"Velmarine\\Runtime");
}

}  // namespace settings
