#include <gtest/gtest.h>

#include <stdexcept>

#include "platform/windows_sdk.h"
#include "text/utf8.h"
#include "tunnel/driver/windivert.h"

namespace tunnel {
namespace {

// The program's folder, which contains one folder for each test library.
std::wstring ProgramFolder() {
  wchar_t path[1024] = {};
  const DWORD length = ::GetModuleFileNameW(nullptr, path, 1024);
  const std::wstring whole(path, length);
  return whole.substr(0, whole.find_last_of(L'\\'));
}

// Puts one of those folders on the library search path during its lifetime.
class SearchFolder {
 public:
  explicit SearchFolder(const std::wstring& name) {
    EXPECT_TRUE(::SetDllDirectoryW((ProgramFolder() + L"\\windivert\\" + name).c_str()));
  }
  ~SearchFolder() { ::SetDllDirectoryW(nullptr); }
  SearchFolder(const SearchFolder&) = delete;
  SearchFolder& operator=(const SearchFolder&) = delete;
};

std::string LoadError() {
  try {
    LoadWinDivert();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "no error";
}

bool IsLoaded() {
  return ::GetModuleHandleW(L"WinDivert.dll") != nullptr;
}

TEST(LoadWinDivert, ReportsAMissingLibrary) {
  const SearchFolder folder(L"nowhere");
  EXPECT_EQ(LoadError(), "WinDivert.dll was not found in the runtime cache.\r\n" +
                             text::ToUtf8(DescribeDriverError(ERROR_MOD_NOT_FOUND)));
}

TEST(LoadWinDivert, ReportsAMissingExportAndFreesTheLibrary) {
  for (int leftOut = 1; leftOut <= 6; ++leftOut) {
    const SearchFolder folder(L"without" + std::to_wstring(leftOut));
    EXPECT_EQ(LoadError(), "WinDivert.dll is missing required exports.") << leftOut;
    EXPECT_FALSE(IsLoaded()) << leftOut;
  }
}

TEST(LoadWinDivert, BindsEachFunctionToItsExportAndFreesTheLibraryLast) {
  const SearchFolder folder(L"without0");
  auto api = LoadWinDivert();
  EXPECT_TRUE(IsLoaded());
  EXPECT_EQ(reinterpret_cast<std::intptr_t>(api->open(nullptr, 0, 0, 0)) & 0xFF, 1);
  EXPECT_EQ(api->recv(nullptr, nullptr, 0, nullptr, nullptr), 2);
  EXPECT_EQ(api->send(nullptr, nullptr, 0, nullptr, nullptr), 3);
  EXPECT_EQ(api->calcChecksums(nullptr, 0, nullptr, 0), 4);
  EXPECT_EQ(api->close(nullptr), 5);
  api.reset();
  EXPECT_FALSE(IsLoaded());
}

}  // namespace
}  // namespace tunnel
