// The folders of the settings and the runtime files, as derived from Windows' known folders.
#include <gtest/gtest.h>

#include "platform/files.h"
#include "platform/scratch_folder.h"
#include "settings/settings_file.h"
#include "win32/calls.h"
// Requires the SDK header above.
#include <knownfolders.h>

namespace settings {
namespace {

using namespace win32;

// Makes the system return `folder` for every known folder.
void AnswerKnownFolders(Calls& calls, const std::wstring& folder) {
  calls.AnswerWith<Api::SHGetKnownFolderPath>(
      [folder](const KNOWNFOLDERID&, DWORD, HANDLE, wchar_t** path) {
        *path = static_cast<wchar_t*>(::CoTaskMemAlloc((folder.size() + 1) * sizeof(wchar_t)));
        std::char_traits<wchar_t>::copy(*path, folder.c_str(), folder.size() + 1);
        return S_OK;
      });
}

TEST(SettingsFolderCalls, PutTheRuntimeFilesBelowLocalAppData) {
  Calls calls;
  AnswerKnownFolders(calls, L"C:\\local");
  calls.AnswerWith<Api::GetTempPathW>([](DWORD, wchar_t* path) -> DWORD {
    std::char_traits<wchar_t>::copy(path, L"C:\\temp\\", 9);
    return 8;
  });
  EXPECT_EQ(RuntimeFolder(), L"C:\\local\\Velmarine\\Runtime");
  EXPECT_TRUE(calls.EachWas(
      Api::SHGetKnownFolderPath,
      Said<Api::SHGetKnownFolderPath>(FOLDERID_LocalAppData, KF_FLAG_DEFAULT, nullptr, Some{})));
  calls.Fail(Api::SHGetKnownFolderPath, 1450);
  EXPECT_EQ(RuntimeFolder(), L"C:\\temp\\Velmarine\\Runtime");
}

TEST(SettingsFolderCalls, NameADamagedFileAfterTheUsersClock) {
  const platform::ScratchFolder scratch;
  Calls calls;
  AnswerKnownFolders(calls, scratch.Folder());
  calls.AnswerWith<Api::GetLocalTime>(
      [](SYSTEMTIME* time) { *time = {2026, 3, 6, 15, 9, 41, 2, 0}; });
  const std::wstring folder = scratch.Path(L"Velmarine\\");
  ASSERT_TRUE(platform::CreateFolders(scratch.Path(L"Velmarine")));
  ASSERT_TRUE(platform::WriteFileBytes(folder + L"Client.settings.json", "damaged"));
  SettingsFile file = RealSettingsFile();
  EXPECT_EQ(file.Save(Settings()).failure, L"");
  EXPECT_EQ(platform::ReadFileBytes(folder + L"Client.settings.damaged-20260315_094102.json"),
            "damaged");
  EXPECT_TRUE(calls.EachWas(
      Api::SHGetKnownFolderPath,
      Said<Api::SHGetKnownFolderPath>(FOLDERID_RoamingAppData, KF_FLAG_DEFAULT, nullptr, Some{})));
  EXPECT_GE(calls.Count(Api::FlushFileBuffers), 1) << "the disk is waited for";
}

}  // namespace
}  // namespace settings
