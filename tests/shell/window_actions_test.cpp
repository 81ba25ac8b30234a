#include <gtest/gtest.h>

#include <algorithm>

#include "settings/json.h"
#include "shell/window_fixture.h"
#include "shell/window_messages.h"

namespace shell {
namespace {

using Lines = std::vector<std::wstring>;
using Names = std::vector<std::string>;

constexpr wchar_t kDiscoveryOn[] = L"局域网发现模式已开启：支持 PLC 广播扫描。";
constexpr wchar_t kDiscoveryOff[] = L"局域网发现模式已关闭：仅支持已知 IP 访问。";

class WindowActions : public WindowTest {};

TEST_F(WindowActions, ReadyHandsOverTheQueueAndThenApplyAndTwoStates) {
  Open();
  Pump();
  Log(L"early");
  Pump();
  EXPECT_TRUE(page_.posted.empty());
  PageSends(L"{\"action\":\"ready\",\"f\":{}}");
  const Names kept = {"apply", "state", "log", "log"};
  EXPECT_EQ(PostedKinds(), kept);
  EXPECT_NE(page_.posted[2].find(L"客户端启动中"), std::wstring::npos);
  EXPECT_NE(page_.posted[3].find(L"early"), std::wstring::npos);
  Pump();
  EXPECT_EQ(PostedKinds(), (Names{"apply", "state", "log", "log", "apply", "state", "state"}));
  EXPECT_EQ(page_.posted[5], page_.posted[6]);
  EXPECT_TRUE(state_->pageQueue.empty());
}

TEST_F(WindowActions, ReadyTwiceSendsTheFormAgain) {
  OpenWithReadyPage();
  PageSends(L"{\"action\":\"ready\",\"f\":{}}");
  Pump();
  EXPECT_EQ(PostedKinds(), (Names{"apply", "state", "state"}));
}

TEST_F(WindowActions, MessagesWaitUntilTheControlIsUp) {
  OpenWithReadyPage();
  page_.up = false;
  Log(L"later");
  Pump();
  EXPECT_TRUE(page_.posted.empty());
  EXPECT_EQ(state_->pageQueue.size(), 1u);
}

constexpr wchar_t kReplaced[] = L"警告：一条消息含有页面无法接受的字符，已替换后重新发送。";

TEST_F(WindowActions, ARefusedResultIsSentWithItsCharactersReplaced) {
  OpenWithReadyPage();
  const std::wstring result(L"甲\x01乙\0丙", 5);
  jobBody_ = [&](settings::Settings&, tunnel::Tunnel&) { return result; };
  for (const std::size_t warnings : {1u, 0u}) {  // one warning per run of the program
    ForgetRecords();
    PageSends(L"{\"action\":\"test\",\"f\":{}}");
    FinishJob();
    EXPECT_EQ(page_.refused.size(), 2u);  // the state and the log line
    const bool shown = std::ranges::any_of(page_.posted, [](const std::wstring& json) {
      return json.find(L"\"statusline\":\"甲\xFFFD乙\xFFFD丙\"") != std::wstring::npos;
    });
    EXPECT_TRUE(shown);
    EXPECT_EQ(std::ranges::count(logged_, kReplaced), warnings);
    EXPECT_EQ(std::ranges::count(logged_, result), 1);
  }
}

TEST_F(WindowActions, ARefusedQueuedMessageKeepsItsPlace) {
  Open();
  for (const wchar_t* json : {L"\"1\"", L"\"2\x1f\"", L"\"3\""}) PostToPage(json);
  Pump();
  PageSends(L"{\"action\":\"ready\"}");
  const auto first = std::ranges::find(page_.posted, L"\"1\"");
  ASSERT_GE(page_.posted.end() - first, 3);
  EXPECT_EQ(first[1], L"\"2\xFFFD\"");
  EXPECT_EQ(first[2], L"\"3\"");
}

TEST_F(WindowActions, AMessageRefusedTwiceIsDropped) {
  OpenWithReadyPage();
  page_.refusesAll = true;
  PostToPage(L"\"fine\"");
  Pump();
  EXPECT_EQ(page_.refused, Lines{L"\"fine\""});
  EXPECT_TRUE(logged_.empty());
  PostToPage(L"\"\x01\"");
  Pump();
  EXPECT_EQ(logged_, Lines{kReplaced});
  EXPECT_EQ(page_.refused.size(), 4u);  // the message, its other form and the log line
  EXPECT_TRUE(state_->pageQueue.empty());
}

TEST_F(WindowActions, AWindowThatClosesDuringARefusalSendsNothingMore) {
  OpenWithReadyPage();
  page_.duringPost = [this] { Close(); };
  DeliverToPage(L"\"\x01\"");
  EXPECT_EQ(page_.refused.size(), 1u);
  EXPECT_TRUE(page_.posted.empty());
}

TEST_F(WindowActions, MessagesWithoutAWindowAreDropped) {
  PostToPage(L"{}");
  Open();
  Pump();
  for (const std::wstring& json : state_->pageQueue) EXPECT_NE(json, L"{}");
}

TEST_F(WindowActions, UnknownActionsAreIgnored) {
  OpenWithReadyPage();
  for (const wchar_t* json :
       {L"", L"{", L"[]", L"7", L"{\"f\":{}}", L"{\"action\":5}", L"{\"action\":\"Connect\"}",
        L"{\"action\":\"format\",\"f\":{\"secret\":\"x\"}}", L"{\"action\":\"\"}"}) {
    PageSends(json);
  }
  Send(kFromPage);
  Pump();
  EXPECT_TRUE(logged_.empty());
  EXPECT_TRUE(page_.posted.empty());
  EXPECT_TRUE(disk_.written.empty());
  EXPECT_TRUE(jobsRun_.empty());
}

TEST_F(WindowActions, AnUnknownActionStillUpdatesTheForm) {
  OpenWithReadyPage();
  PageSends(L"{\"action\":\"format\",\"f\":{\"secret\":\"x\"}}");
  PageSends(L"{\"action\":\"test\",\"f\":7}");
  FinishJob();
  EXPECT_EQ(OnDisk().deviceSecret, L"x");
}

struct JobRow {
  const wchar_t* action;
  int command;
  const char* job;
  const wchar_t* busyText;
};

TEST_F(WindowActions, LongActionsStartTheirJobs) {
  const JobRow rows[] = {
      {L"connect", 1009, "connect", L"正在请求连接授权..."},
      {L"secondary", 1010, "resolve", L"正在获取现场端网段..."},
      {L"desktop", 1011, "desktop", L"正在请求远程桌面..."},
      {L"stop", 1013, "stop", L"正在停止软件隧道..."},
      {L"test", 1023, "latency", L"正在测试通讯延迟..."},
  };
  OpenWithReadyPage();
  for (const JobRow& row : rows) {
    ForgetRecords();
    PageSends(L"{\"action\":\"" + std::wstring(row.action) + L"\"}");
    FinishJob();
    Send(WM_COMMAND, static_cast<WPARAM>(row.command));
    FinishJob();
    EXPECT_EQ(jobsRun_, (Names{row.job, row.job}));
    EXPECT_EQ(logged_, (Lines{row.busyText, L"完成", row.busyText, L"完成"})) << row.job;
  }
}

struct DiscoveryRow {
  const char* name;
  const wchar_t* form;
  bool on;
};

TEST_F(WindowActions, DiscoveryFollowsTheForm) {
  const DiscoveryRow rows[] = {
      {"on", L"{\"discovery\":true}", true},
      {"off", L"{\"discovery\":false}", false},
      {"missing", L"{}", false},
      {"no boolean", L"{\"discovery\":\"true\"}", false},
  };
  OpenWithReadyPage();
  for (const DiscoveryRow& row : rows) {
    ForgetRecords();
    Edit([&row](settings::Settings& settings) { settings.discoveryModeEnabled = !row.on; });
    PageSends(L"{\"action\":\"discovery\",\"f\":" + std::wstring(row.form) + L"}");
    Pump();
    EXPECT_EQ(OnDisk().discoveryModeEnabled, row.on) << row.name;
    EXPECT_EQ(logged_, Lines{row.on ? kDiscoveryOn : kDiscoveryOff}) << row.name;
    EXPECT_EQ(PostedKinds(), (Names{"log", "state"})) << row.name;
    EXPECT_TRUE(jobsRun_.empty()) << row.name;
  }
}

TEST_F(WindowActions, AutomaticTargetIsStoredAsAllAndRestored) {
  OpenWithReadyPage();
  PageSends(L"{\"action\":\"test\",\"f\":{\"target\":\"自动\"}}");
  FinishJob();
  EXPECT_EQ(OnDisk().targetNetwork, L"ALL");
  bool seen = false;
  for (const std::wstring& json : page_.posted) {
    seen = seen || json.find(L"\"target\":\"自动\"") != std::wstring::npos;
  }
  EXPECT_TRUE(seen);
}

TEST_F(WindowActions, CommandsWithoutAnActionDoNothing) {
  OpenWithReadyPage();
  for (const WPARAM id : {1016u, 1019u, 1020u, 1021u, 1024u, 1u, 999u, 1099u}) Send(WM_COMMAND, id);
  Pump();
  EXPECT_TRUE(logged_.empty());
  EXPECT_TRUE(page_.posted.empty());
  EXPECT_TRUE(disk_.written.empty());
}

std::wstring ClipboardText() {
  std::wstring text;
  if (::OpenClipboard(nullptr) == FALSE) return text;
  if (const HANDLE data = ::GetClipboardData(CF_UNICODETEXT)) {
    text = static_cast<const wchar_t*>(::GlobalLock(data));
    ::GlobalUnlock(data);
  }
  ::CloseClipboard();
  return text;
}

TEST_F(WindowActions, CopiesTheSecretWithoutNamingIt) {
  OpenWithReadyPage();
  PageSends(L"{\"action\":\"none\",\"f\":{\"secret\":\" s3cret钥 \"}}");
  Send(WM_COMMAND, 1014);
  EXPECT_EQ(logged_, Lines{L"接入密钥已复制。"});
  EXPECT_EQ(ClipboardText(), L"s3cret钥");
  PageSends(L"{\"action\":\"none\",\"f\":{}}");
  Send(WM_COMMAND, 1014);
  EXPECT_EQ(logged_.back(), L"当前没有可复制的密钥。");
  EXPECT_EQ(ClipboardText(), L"s3cret钥");
}

std::wstring CaptionOf(HWND control) {
  wchar_t caption[64] = {};
  ::GetWindowTextW(control, caption, 64);
  return caption;
}

TEST_F(WindowActions, ToggleFlipsDiscoveryAndItsCaption) {
  OpenWithReadyPage();
  const HWND toggle = ::CreateWindowExW(0, L"BUTTON", L"?", WS_CHILD, 0, 0, 10, 10, state_->window,
                                        reinterpret_cast<HMENU>(1025), nullptr, nullptr);
  ASSERT_NE(toggle, nullptr);
  Send(WM_COMMAND, 1025, reinterpret_cast<LPARAM>(toggle));
  EXPECT_EQ(CaptionOf(toggle), L"PLC发现模式：开");
  EXPECT_TRUE(OnDisk().discoveryModeEnabled);
  Send(WM_COMMAND, 1025, reinterpret_cast<LPARAM>(toggle));
  EXPECT_EQ(CaptionOf(toggle), L"PLC发现模式：关");
  EXPECT_FALSE(OnDisk().discoveryModeEnabled);
  Send(WM_COMMAND, 1025);
  EXPECT_EQ(logged_, (Lines{kDiscoveryOn, kDiscoveryOff, kDiscoveryOn}));
}

}  // namespace
}  // namespace shell
