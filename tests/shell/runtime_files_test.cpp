#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <string>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "settings/settings_file.h"
#include "shell/runtime_files_win.h"
#include "shell/test_folder_win.h"

namespace shell {
namespace {

// The resources that shell_test.rc embeds in this program.
constexpr char kLibraryBytes[] = "library bytes";
constexpr char kDriverBytes[] = "driver bytes, a few more";

class RuntimeFiles : public testing::Test {
 protected:
  ~RuntimeFiles() override { ::SetDllDirectoryW(nullptr); }

  // Lays out the files as the program at `programPath` does when it starts.
  void LayOut(const std::wstring& programPath = L"C:\\Tools\\client.exe") {
    LayOutRuntimeFilesFrom(::GetModuleHandleW(nullptr), Runtime(), programPath);
  }
  [[nodiscard]] std::wstring Runtime() const { return folder_.Path(L"Velmarine\\Runtime"); }
  [[nodiscard]] std::wstring Library() const { return Runtime() + L"\\WinDivert.dll"; }
  [[nodiscard]] std::wstring Driver() const { return Runtime() + L"\\WinDivert64.sys"; }

  // Writes a file, creating its folder.
  static void Put(const std::wstring& path, const std::string& bytes) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    ASSERT_TRUE(platform::WriteFileBytes(path, bytes));
  }
  [[nodiscard]] std::size_t CountFiles() const {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_.Root())) {
      if (entry.is_regular_file()) ++count;
    }
    return count;
  }

  TestFolder folder_{L"runtime"};
};

TEST_F(RuntimeFiles, AreWrittenAtTheFirstStart) {
  LayOut();

  EXPECT_EQ(platform::ReadFileBytes(Library()), kLibraryBytes);
  EXPECT_EQ(platform::ReadFileBytes(Driver()), kDriverBytes);
}

// The library is used anyway: an engineer may have installed another version.
TEST_F(RuntimeFiles, ReportAForeignLibraryByItsHash) {
  HMODULE self = ::GetModuleHandleW(nullptr);
  EXPECT_EQ(WhatIsForeignIn(self, Runtime()), L"") << "there is none";
  LayOut();
  EXPECT_EQ(WhatIsForeignIn(self, Runtime()), L"");
  Put(Library(), "LIBRARY BYTES");
  LayOut();
  EXPECT_EQ(platform::ReadFileBytes(Library()), "LIBRARY BYTES");
  EXPECT_EQ(WhatIsForeignIn(self, Runtime()),
            L"警告：运行目录中的 WinDivert.dll 不是本程序自带的文件，仍按原样使用。SHA-256："
            L"21f062d8ed679ab5b3e94b92378454d0eb2ce9ee7a232c80bfd1f3fc2d2bf8ef");
}

TEST_F(RuntimeFiles, ComeFirstInTheLibrarySearch) {
  LayOut();

  std::array<wchar_t, MAX_PATH> directory{};
  ::GetDllDirectoryW(static_cast<DWORD>(directory.size()), directory.data());
  EXPECT_EQ(std::wstring(directory.data()), Runtime());
}

TEST_F(RuntimeFiles, AreNotWrittenByASecondStart) {
  LayOut();
  const auto longAgo = std::filesystem::last_write_time(Library()) - std::chrono::hours(100);
  std::filesystem::last_write_time(Library(), longAgo);
  std::filesystem::last_write_time(Driver(), longAgo);
  LayOut();

  EXPECT_EQ(std::filesystem::last_write_time(Library()), longAgo);
  EXPECT_EQ(std::filesystem::last_write_time(Driver()), longAgo);
}

TEST_F(RuntimeFiles, AreRewrittenWhenTheirSizeDiffers) {
  for (const char* other : {"", "library", "library bytes and an old tail"}) {
    Put(Library(), other);
    LayOut();
    EXPECT_EQ(platform::ReadFileBytes(Library()), kLibraryBytes);
  }
}

TEST_F(RuntimeFiles, AreKeptWhenOnlyTheirContentsDiffer) {
  const std::string other(sizeof(kLibraryBytes) - 1, 'x');
  Put(Library(), other);
  LayOut();

  EXPECT_EQ(platform::ReadFileBytes(Library()), other);
}

TEST_F(RuntimeFiles, StayUnchangedWhileInUse) {
  Put(Library(), "old");
  const platform::FileHandle lock(::CreateFileW(Library().c_str(), GENERIC_READ, FILE_SHARE_READ,
                                                nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                                                nullptr));
  ASSERT_TRUE(static_cast<bool>(lock));
  LayOut();

  EXPECT_EQ(platform::ReadFileBytes(Library()), "old");
  EXPECT_EQ(platform::ReadFileBytes(Driver()), kDriverBytes) << "the other one is still laid out";
}

TEST_F(RuntimeFiles, TouchNothingOutsideTheirFolder) {
  Put(folder_.Path(L"windivert\\x64\\WinDivert.dll"), "published library");
  LayOut(folder_.Path(L"bin\\client.exe"));

  EXPECT_EQ(CountFiles(), 3u) << "the two runtime files and the one put there";
}

TEST_F(RuntimeFiles, FailSilentlyWhenTheirFolderCannotBeCreated) {
  Put(folder_.Path(L"Velmarine"), "a file, not a folder");
  LayOut();

  EXPECT_EQ(CountFiles(), 1u);
}

TEST_F(RuntimeFiles, RefreshTheDriverOfASourceTree) {
  const std::wstring program = folder_.Path(L"src\\VelmarineNative\\build\\client.exe");
  const std::wstring embedded = folder_.Path(L"src\\EngineerClient\\EmbeddedRuntime\\");
  Put(folder_.Path(L"windivert\\x64\\WinDivert.dll"), "published library");
  Put(folder_.Path(L"windivert\\x64\\WinDivert64.sys"), "published driver");
  Put(embedded + L"WinDivert64.sys", "old driver");
  LayOut(program);

  EXPECT_EQ(platform::ReadFileBytes(embedded + L"WinDivert.dll"), "published library");
  EXPECT_EQ(platform::ReadFileBytes(embedded + L"WinDivert64.sys"), "published driver");
  EXPECT_EQ(platform::ReadFileBytes(Library()), kLibraryBytes);
}

TEST_F(RuntimeFiles, KeepASourceTreesFilesOfTheSameSize) {
  const std::wstring embedded = folder_.Path(L"src\\EngineerClient\\EmbeddedRuntime\\");
  Put(folder_.Path(L"windivert\\x64\\WinDivert.dll"), "published");
  Put(embedded + L"WinDivert.dll", "same size");
  LayOut(folder_.Path(L"src\\VelmarineNative\\client.exe"));

  EXPECT_EQ(platform::ReadFileBytes(embedded + L"WinDivert.dll"), "same size");
  EXPECT_FALSE(platform::IsFile(embedded + L"WinDivert64.sys")) << "there is nothing to copy";
}

TEST_F(RuntimeFiles, FailIfTheirResourceIsMissingOrEmpty) {
  constexpr WORD kEmpty = 203;
  constexpr WORD kMissing = 999;
  const std::wstring target = folder_.Path(L"new\\file.bin");
  for (const WORD id : {kEmpty, kMissing}) {
    EXPECT_FALSE(ExtractResource(::GetModuleHandleW(nullptr), id, target)) << id;
    EXPECT_FALSE(std::filesystem::exists(folder_.Path(L"new"))) << id;
  }
}

TEST_F(RuntimeFiles, CreateEveryMissingFolder) {
  const std::wstring target = folder_.Path(L"a\\b\\c\\file.bin");

  EXPECT_TRUE(ExtractResource(::GetModuleHandleW(nullptr), kDriverResource, target));
  EXPECT_EQ(platform::ReadFileBytes(target), kDriverBytes);
  EXPECT_TRUE(ExtractResource(::GetModuleHandleW(nullptr), kDriverResource, target))
      << "a file of the right size is a success";
}

TEST(RuntimeFolder, IsInTheUsersOwnData) {
  const std::wstring folder = settings::RuntimeFolder();
  const std::wstring end = L"\\Velmarine\\Runtime";
  ASSERT_GT(folder.size(), end.size());
  EXPECT_EQ(folder.substr(folder.size() - end.size()), end);
  EXPECT_EQ(folder.substr(0, folder.size() - end.size()), platform::LocalAppDataFolder());
}

}  // namespace
}  // namespace shell
