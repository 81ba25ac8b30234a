#include "platform/files.h"
#include "platform/path.h"
#include "settings/engineer_id.h"
#include "settings/settings.h"
#include "text/utf8.h"

namespace settings {

void LoadSettings(const std::wstring& path, Settings& settings) {
  const std::optional<std::string> bytes = platform::ReadFileBytes(path);
  if (!bytes) {
    settings.engineerId = MakeEngineerId();
    return;
  }
  if (bytes->empty()) return;
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  std::string_view document = *bytes;
  if (document.starts_with(kByteOrderMark)) document.remove_prefix(kByteOrderMark.size());
  ReadSettingsText(text::FromUtf8(document), settings);
}

void SaveSettings(const std::wstring& path, const Settings& settings) {
  platform::CreateFolders(platform::ParentFolder(path));
  platform::WriteFileBytes(path, text::ToUtf8(WriteSettingsText(settings)));
}

}  // namespace settings
