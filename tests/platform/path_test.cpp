#include "platform/path.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(JoinPath, PutsOneBackslashBetween) {
  EXPECT_EQ(JoinPath(L"C:\\Data", L"Velmarine"), L"C:\\Data\\Velmarine");
  EXPECT_EQ(JoinPath(L"C:\\Data\\", L"Velmarine"), L"C:\\Data\\Velmarine");
  EXPECT_EQ(JoinPath(L"C:/Data/", L"Velmarine"), L"C:/Data/Velmarine");
  EXPECT_EQ(JoinPath(L"C:/Data", L"Velmarine"), L"C:/Data\\Velmarine");
  EXPECT_EQ(JoinPath(L"C:\\", L"x"), L"C:\\x");
}

TEST(JoinPath, LeavesTheRelativePartAloneWithoutABase) {
  EXPECT_EQ(JoinPath(L"", L"RustDesk\\rustdesk.exe"), L"RustDesk\\rustdesk.exe");
  EXPECT_EQ(JoinPath(L"", L""), L"");
}

TEST(ParentFolder, IsThePartBeforeTheLastSlash) {
  EXPECT_EQ(ParentFolder(L"C:\\Data\\a.json"), L"C:\\Data");
  EXPECT_EQ(ParentFolder(L"C:/Data/a.json"), L"C:/Data");
  EXPECT_EQ(ParentFolder(L"C:\\Data/x\\a"), L"C:\\Data/x");
  EXPECT_EQ(ParentFolder(L"C:/Data\\x/a"), L"C:/Data\\x");
  EXPECT_EQ(ParentFolder(L"C:\\Data\\"), L"C:\\Data");
  EXPECT_EQ(ParentFolder(L"a.json"), L"");
  EXPECT_EQ(ParentFolder(L""), L"");
}

TEST(ExtendedPath, LeavesShortPathsAndOtherTextsAlone) {
  for (const std::wstring& path :
       {std::wstring(L""), std::wstring(L"C:\\a"), L"C:\\" + std::wstring(244, L'x'),
        std::wstring(400, L'x'), L"\\\\?\\C:\\" + std::wstring(400, L'x'),
        L"\\\\.\\pipe\\" + std::wstring(400, L'x'), L"C:" + std::wstring(400, L'x')}) {
    EXPECT_EQ(ExtendedPath(path), path);
  }
}

TEST(ExtendedPath, MarksPathsThatAreTooLongForThePlainForm) {
  const std::wstring name(260, L'x');
  EXPECT_EQ(ExtendedPath(L"C:\\" + std::wstring(245, L'x')),
            L"\\\\?\\C:\\" + std::wstring(245, L'x'));
  EXPECT_EQ(ExtendedPath(L"C:/a/" + name), L"\\\\?\\C:\\a\\" + name);
  EXPECT_EQ(ExtendedPath(L"\\\\server\\share\\" + name), L"\\\\?\\UNC\\server\\share\\" + name);
}

TEST(PathFromBuffer, IsEmptyUnlessItFitsWithItsTerminator) {
  const std::wstring filled(260, L'x');
  for (const std::size_t lengthUnits : {0U, 1U, 258U, 259U}) {
    EXPECT_EQ(PathFromBuffer(filled, lengthUnits), std::wstring(lengthUnits, L'x'));
  }
  for (const std::size_t lengthUnits : {260U, 261U, 32767U}) {
    EXPECT_EQ(PathFromBuffer(filled, lengthUnits), L"") << lengthUnits;
  }
}

}  // namespace
}  // namespace platform
