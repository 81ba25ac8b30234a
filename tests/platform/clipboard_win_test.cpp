#include <gtest/gtest.h>

#include <future>
#include <thread>

#include "platform/clipboard.h"
#include "platform/windows_sdk.h"

namespace platform {
namespace {

// Returns the clipboard's text. Fails if the clipboard was left open.
std::wstring ClipboardText() {
  if (::OpenClipboard(nullptr) == FALSE) return L"(held)";
  std::wstring text = L"(none)";
  if (const HANDLE data = ::GetClipboardData(CF_UNICODETEXT)) {
    text = static_cast<const wchar_t*>(::GlobalLock(data));
    ::GlobalUnlock(data);
  }
  ::CloseClipboard();
  return text;
}

// Keeps the clipboard open from another window for its lifetime.
class Holder {
 public:
  Holder() {
    std::promise<bool> opened;
    std::future<bool> isOpen = opened.get_future();
    thread_ = std::thread([this, &opened] { Run(opened); });
    EXPECT_TRUE(isOpen.get());
  }
  ~Holder() {
    letGo_.set_value();
    thread_.join();
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

 private:
  void Run(std::promise<bool>& opened) {
    const HWND window = ::CreateWindowExW(0, L"STATIC", L"holder", WS_OVERLAPPED, 0, 0, 1, 1,
                                          nullptr, nullptr, nullptr, nullptr);
    std::future<void> end = letGo_.get_future();
    opened.set_value(::OpenClipboard(window) != FALSE);
    end.wait();
    ::CloseClipboard();
    ::DestroyWindow(window);
  }

  std::promise<void> letGo_;
  std::thread thread_;
};

TEST(Clipboard, ReturnsEveryTextUnchanged) {
  const std::wstring texts[] = {L"pw", L"密码 1", L"\xD83D\xDE00 astral \xD83D\xDE01",
                                L"a\tb\r\nc\"'\\", std::wstring(100'000, L'钥')};
  for (const std::wstring& text : texts) {
    EXPECT_TRUE(CopySecretToClipboard(text));
    EXPECT_EQ(ClipboardText(), text);
  }
}

TEST(Clipboard, AsksHistoryAndCloudToLeaveTheTextOut) {
  ASSERT_TRUE(CopySecretToClipboard(L"pw"));
  ASSERT_TRUE(::OpenClipboard(nullptr));
  EXPECT_TRUE(::IsClipboardFormatAvailable(
      ::RegisterClipboardFormatW(L"ExcludeClipboardContentFromMonitorProcessing")));
  for (const wchar_t* const format :
       {L"CanIncludeInClipboardHistory", L"CanUploadToCloudClipboard"}) {
    const HANDLE data = ::GetClipboardData(::RegisterClipboardFormatW(format));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(::GlobalSize(data), sizeof(DWORD));
    EXPECT_EQ(*static_cast<const DWORD*>(::GlobalLock(data)), 0u);
    ::GlobalUnlock(data);
  }
  ::CloseClipboard();
}

TEST(Clipboard, AnEmptyTextChangesNothing) {
  ASSERT_TRUE(CopySecretToClipboard(L"before"));
  EXPECT_FALSE(CopySecretToClipboard(L""));
  EXPECT_EQ(ClipboardText(), L"before");
}

TEST(Clipboard, HeldByAnotherWindowFailsUntilReleased) {
  ASSERT_TRUE(CopySecretToClipboard(L"before"));
  {
    const Holder holder;
    EXPECT_FALSE(CopySecretToClipboard(L"lost"));
    EXPECT_EQ(ClipboardText(), L"(held)");
  }
  EXPECT_EQ(ClipboardText(), L"before");
  EXPECT_TRUE(CopySecretToClipboard(L"after"));
  EXPECT_EQ(ClipboardText(), L"after");
}

TEST(Clipboard, IsFreeForOthersAfterEachCopy) {
  for (const wchar_t* const text : {L"pw", L""}) {
    CopySecretToClipboard(text);
    const Holder holder;  // opens only if the copy closed it
  }
}

TEST(Clipboard, TakesTheTextOnBehalfOfAWindow) {
  const HWND window = ::CreateWindowExW(0, L"STATIC", L"owner", WS_OVERLAPPED, 0, 0, 1, 1, nullptr,
                                        nullptr, nullptr, nullptr);
  EXPECT_TRUE(CopySecretToClipboard(L"owned", window));
  EXPECT_EQ(::GetClipboardOwner(), window);
  EXPECT_EQ(ClipboardText(), L"owned");
  ::DestroyWindow(window);
}

TEST(Clipboard, IsEmptiedOnlyOfTheSecret) {
  for (const std::wstring& secret :
       {std::wstring(L"pw"), std::wstring(L"密码 \xD83D\xDE00"), std::wstring(100'000, L'钥')}) {
    ASSERT_TRUE(CopySecretToClipboard(secret));
    for (const std::wstring& other : {secret + L"x", secret.substr(1), std::wstring(L"PW")}) {
      EXPECT_TRUE(TakeSecretOffClipboard(other));
      EXPECT_EQ(ClipboardText(), secret);
    }
    EXPECT_TRUE(TakeSecretOffClipboard(secret));
    EXPECT_EQ(ClipboardText(), L"(none)");
    EXPECT_EQ(::CountClipboardFormats(), 0);
    EXPECT_TRUE(TakeSecretOffClipboard(secret)) << "there is none any more";
  }
}

TEST(Clipboard, HeldByAnotherWindowKeepsTheSecretForNow) {
  ASSERT_TRUE(CopySecretToClipboard(L"pw"));
  {
    const Holder holder;
    EXPECT_FALSE(TakeSecretOffClipboard(L"pw"));
  }
  EXPECT_EQ(ClipboardText(), L"pw");
  EXPECT_TRUE(TakeSecretOffClipboard(L"pw"));
}

}  // namespace
}  // namespace platform
