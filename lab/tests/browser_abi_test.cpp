// The browser stand-in against the published tables: ids, slots, results, threads and ownership.
#include <gtest/gtest.h>

#include "browser_stand.h"

namespace {

constexpr wchar_t kUnknown[] = L"00000000-0000-0000-C000-000000000046";
constexpr wchar_t kEnvironment[] = L"b96d755e-0319-4e92-a296-23436f46a1fc";
constexpr wchar_t kController[] = L"4d00c0d1-9434-4eb6-8078-8697a560334f";
constexpr wchar_t kController2[] = L"c979903e-d4ca-4228-92eb-47ee3fa96eab";
constexpr wchar_t kController3[] = L"f9614724-5d2b-41dc-aef7-73d62b51543b";
constexpr wchar_t kWebView[] = L"76eceacb-0462-4d94-ac83-423a6793775e";
constexpr wchar_t kWebView2[] = L"9e8f0cf8-e670-4b5e-b2bc-73e061e3184c";
constexpr wchar_t kSettings[] = L"e562e4f0-d7fa-43ac-8d71-c05150499f00";
constexpr wchar_t kMessageArgs[] = L"0f99a40c-e962-4207-9e92-e3d542eff849";
constexpr wchar_t kNavigationArgs[] = L"30d68b7d-20d9-4752-a9ca-ec8448fbb5c1";

TEST_F(Stand, AnswersItsInterfaceIdsAndNoOthers) {
  OpenController();
  ExpectAnswers(environment_, {kUnknown, kEnvironment}, {kController});
  ExpectAnswers(controller_, {kUnknown, kController, kController2}, {kController3, kWebView});
  ExpectAnswers(webview_, {kUnknown, kWebView}, {kWebView2});
  void* settings = nullptr;
  ASSERT_EQ(CallSlot(webview_, 3, &settings), S_OK);
  ExpectAnswers(settings, {kUnknown, kSettings}, {kWebView});
  ReleaseRaw(settings);
  EXPECT_EQ(TakeString(environment_, 5), L"120.0.0.0");
}

TEST_F(Stand, RequiresASingleThreadedApartment) {
  RawHandler never([](void*, void*) {});
  HRESULT bare = S_OK;
  HRESULT multi = S_OK;
  std::thread([&] { bare = CreateEnvironment(&never); }).join();
  std::thread([&] {
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    multi = CreateEnvironment(&never);
    ::CoUninitialize();
  }).join();
  EXPECT_EQ(bare, CO_E_NOTINITIALIZED);
  EXPECT_EQ(multi, RPC_E_CHANGED_MODE);
  OpenController();
  HRESULT other = S_OK;
  std::thread([&] { other = CallSlot(webview_, 32, L"1"); }).join();
  EXPECT_EQ(other, RPC_E_WRONG_THREAD);
}

TEST_F(Stand, FailsTheRequestedStep) {
  HRESULT seen = S_OK;
  void* object = this;
  RawHandler completed([&](void* result, void* given) {
    seen = ResultOf(result);
    object = given;
  });
  ::SetEnvironmentVariableW(L"LAB_WEBVIEW_FAIL", L"create");
  EXPECT_EQ(CreateEnvironment(&completed), E_FAIL);
  ::SetEnvironmentVariableW(L"LAB_WEBVIEW_FAIL", L"environment=0x80070005");
  EXPECT_EQ(CreateEnvironment(&completed), S_OK);
  ASSERT_TRUE(Pump([&] { return completed.calls == 1; }));
  EXPECT_EQ(seen, E_ACCESSDENIED);
  EXPECT_EQ(object, nullptr);
  ::SetEnvironmentVariableW(L"LAB_WEBVIEW_FAIL", L"controller");
  OpenEnvironment();
  EXPECT_EQ(CallSlot(environment_, 3, parent_, &completed), S_OK);
  ASSERT_TRUE(Pump([&] { return completed.calls == 2; }));
  EXPECT_EQ(seen, E_FAIL);
}

TEST_F(Stand, FailsToCreateAControllerWithoutABrowser) {
  bridge_.answer = 102;
  OpenEnvironment();
  HRESULT seen = S_OK;
  RawHandler completed([&](void* result, void* object) {
    seen = ResultOf(result);
    EXPECT_EQ(object, nullptr);
  });
  ASSERT_EQ(CallSlot(environment_, 3, parent_, &completed), S_OK);
  ASSERT_TRUE(Pump([&] { return completed.calls == 1; }));
  EXPECT_EQ(seen, E_FAIL);
  EXPECT_EQ(::GetWindow(parent_, GW_CHILD), nullptr);
}

TEST_F(Stand, AbortsTheCreationIfTheParentIsDestroyed) {
  bridge_.answer = 0;
  OpenEnvironment();
  HRESULT seen = S_OK;
  RawHandler completed([&](void* result, void*) { seen = ResultOf(result); });
  ASSERT_EQ(CallSlot(environment_, 3, parent_, &completed), S_OK);
  ::DestroyWindow(parent_);
  EXPECT_EQ(completed.calls, 1);
  EXPECT_EQ(seen, E_ABORT);
}

TEST_F(Stand, KeepsBoundsVisibilityAndBackground) {
  OpenController();
  BOOL visible = FALSE;
  EXPECT_EQ(CallSlot(controller_, 3, &visible), S_OK);
  EXPECT_EQ(visible, TRUE);
  const RECT wanted{10, 20, 210, 120};
  EXPECT_EQ(CallSlot(controller_, 6, wanted), S_OK);
  RECT bounds{};
  EXPECT_EQ(CallSlot(controller_, 5, &bounds), S_OK);
  EXPECT_TRUE(::EqualRect(&bounds, &wanted));
  ExpectRequest(6, Le32(200) + Le32(100));
  RECT client{};
  const HWND child = ::GetWindow(parent_, GW_CHILD);
  ::GetClientRect(child, &client);
  EXPECT_EQ(client.right, 200);
  EXPECT_EQ(CallSlot(controller_, 12, 0), S_OK);
  EXPECT_EQ(::GetFocus(), child);
  EXPECT_EQ(CallSlot(controller_, 12, 3), E_INVALIDARG);
  EXPECT_EQ(CallSlot(controller_, 4, BOOL{FALSE}), S_OK);
  ExpectRequest(7, std::string(1, '\0'));
  EXPECT_EQ(::IsWindowVisible(child), FALSE);
  EXPECT_EQ(CallSlot(controller_, 12, 0), E_INVALIDARG);
  HWND parent = nullptr;
  EXPECT_EQ(CallSlot(controller_, 21, &parent), S_OK);
  EXPECT_EQ(parent, parent_);
  EXPECT_EQ(CallSlot(controller_, 23), S_OK);
}

TEST_F(Stand, AcceptsOnlyOpaqueAndTransparentBackgrounds) {
  OpenController();
  uint32_t color = 0;
  EXPECT_EQ(CallSlot(controller_, 26, &color), S_OK);
  EXPECT_EQ(color, 0xffffffffu);
  EXPECT_EQ(CallSlot(controller_, 27, uint32_t{0x0a0805ff}), S_OK);  // A=ff R=05 G=08 B=0a
  ExpectRequest(14, "\xff\x05\x08\x0a");
  EXPECT_EQ(CallSlot(controller_, 27, uint32_t{0x0a080580}), E_INVALIDARG);
  EXPECT_EQ(CallSlot(controller_, 26, &color), S_OK);
  EXPECT_EQ(color, 0x0a0805ffu);
}

TEST_F(Stand, ReadsAndSetsEverySwitch) {
  OpenController();
  void* settings = nullptr;
  ASSERT_EQ(CallSlot(webview_, 3, &settings), S_OK);
  for (size_t get = 3; get <= 19; get += 2) {
    BOOL on = FALSE;
    EXPECT_EQ(CallSlot(settings, get, &on), S_OK);
    EXPECT_EQ(on, TRUE) << get;
    EXPECT_EQ(CallSlot(settings, get + 1, BOOL{FALSE}), S_OK);
    EXPECT_EQ(CallSlot(settings, get, &on), S_OK);
    EXPECT_EQ(on, FALSE) << get;
  }
  EXPECT_EQ(CallSlot(webview_, 32, L"1"), E_ACCESSDENIED);  // web messages are off now
  ReleaseRaw(settings);
}

TEST_F(Stand, NavigatesToTextsUpToTheMeasuredSize) {
  OpenController();
  EXPECT_EQ(CallSlot(webview_, 6, L"<p>\x4e2d\xd83d\xde00"), S_OK);
  ExpectRequest(2, Le32(1) + Le32(0) + "<p>\xe4\xb8\xad\xf0\x9f\x98\x80");
  EXPECT_EQ(TakeString(webview_, 4), L"about:blank");
  const std::wstring largest(1572834, L'x');
  EXPECT_EQ(CallSlot(webview_, 6, largest.c_str()), S_OK);
  EXPECT_EQ(CallSlot(webview_, 6, (largest + L"x").c_str()), E_INVALIDARG);
  const std::wstring chinese(524279, L'\x4e2d');  // three bytes each, one too many
  EXPECT_EQ(CallSlot(webview_, 6, chinese.c_str()), E_INVALIDARG);
  EXPECT_EQ(CallSlot(webview_, 5, L"file:///C:/app.html"), S_OK);
  ExpectRequest(3, Le32(3) + Le32(0) + "file:///C:/app.html");
  EXPECT_EQ(CallSlot(webview_, 5, L"app.html"), E_INVALIDARG);
  ::SetEnvironmentVariableW(L"LAB_WEBVIEW_FAIL", L"navigate");
  EXPECT_EQ(CallSlot(webview_, 6, L"x"), E_INVALIDARG);
  EXPECT_EQ(CallSlot(webview_, 5, L"about:blank"), E_INVALIDARG);
}

TEST_F(Stand, ReportsTheResultsOfNavigations) {
  OpenController();
  struct Seen {
    BOOL success = -1;
    int status = -1;
    UINT64 id = 0;
  } seen;
  RawHandler handler([&](void* sender, void* arguments) {
    EXPECT_EQ(sender, webview_);
    ExpectAnswers(arguments, {kUnknown, kNavigationArgs}, {kMessageArgs});
    CallSlot(arguments, 3, &seen.success);
    CallSlot(arguments, 4, &seen.status);
    CallSlot(arguments, 5, &seen.id);
  });
  int64_t token = 0;
  ASSERT_EQ(CallSlot(webview_, 15, &handler, &token), S_OK);
  bridge_.Send(104, Le32(7) + Le32(1) + std::string(1, '\0') + Le32(13));
  ASSERT_TRUE(Pump([&] { return handler.calls == 1; }));
  EXPECT_EQ(seen.success, FALSE);
  EXPECT_EQ(seen.status, 13);
  EXPECT_EQ(seen.id, 0x100000007u);
  EXPECT_EQ(CallSlot(webview_, 16, token), S_OK);
  EXPECT_EQ(handler.references, 1u);
}

std::string Posted(bool isText, const std::string& json, const std::string& text) {
  const std::string source = "about:blank";
  return std::string(1, isText ? '\1' : '\0') + Le32(static_cast<uint32_t>(source.size())) +
         source + Le32(static_cast<uint32_t>(json.size())) + json + text;
}

TEST_F(Stand, PassesOnThePagesMessagesAsTextAndJson) {
  OpenController();
  HRESULT asText = S_FALSE;
  std::wstring source, json, text;
  RawHandler handler([&](void* sender, void* arguments) {
    EXPECT_EQ(sender, webview_);
    ExpectAnswers(arguments, {kUnknown, kMessageArgs}, {kNavigationArgs});
    source = TakeString(arguments, 3);
    json = TakeString(arguments, 4);
    wchar_t untouched[] = L"";
    LPWSTR given = untouched;
    asText = CallSlot(arguments, 5, &given);
    text = given == nullptr ? L"(none)" : given;
    ::CoTaskMemFree(given);
  });
  int64_t token = 0;
  ASSERT_EQ(CallSlot(webview_, 34, &handler, &token), S_OK);
  bridge_.Send(103, Posted(true, "\"\xe4\xb8\xad\"", "\xe4\xb8\xad"));
  ASSERT_TRUE(Pump([&] { return handler.calls == 1; }));
  EXPECT_EQ(asText, S_OK);
  EXPECT_EQ(text, L"\x4e2d");
  EXPECT_EQ(json, L"\"\x4e2d\"");
  EXPECT_EQ(source, L"about:blank");
  EXPECT_EQ(handler.thread, ::GetCurrentThreadId());
  bridge_.Send(103, Posted(false, "{\"a\":1}", ""));
  ASSERT_TRUE(Pump([&] { return handler.calls == 2; }));
  EXPECT_EQ(asText, E_INVALIDARG);
  EXPECT_EQ(text, L"(none)");
  EXPECT_EQ(json, L"{\"a\":1}");
  EXPECT_EQ(CallSlot(webview_, 35, token), S_OK);
  bridge_.Send(103, Posted(false, "2", ""));
  EXPECT_FALSE(Pump([&] { return handler.calls == 3; }, 200));
}

TEST_F(Stand, CallsNoHandlerInsideAnother) {
  OpenController();
  int depth = 0;
  int deepest = 0;
  RawHandler handler([&](void*, void*) {
    deepest = std::max(deepest, ++depth);
    Pump([] { return false; }, 150);
    --depth;
  });
  int64_t token = 0;
  ASSERT_EQ(CallSlot(webview_, 34, &handler, &token), S_OK);
  for (int i = 0; i < 3; ++i) bridge_.Send(103, Posted(false, "1", ""));
  ASSERT_TRUE(Pump([&] { return handler.calls == 3; }));
  EXPECT_EQ(deepest, 1);
  EXPECT_EQ(CallSlot(webview_, 35, token), S_OK);
}

TEST_F(Stand, PostsToThePageInOrder) {
  OpenController();
  EXPECT_EQ(CallSlot(webview_, 32, L"{\"t\":\"\x5728\x7ebf\"}"), S_OK);
  EXPECT_EQ(CallSlot(webview_, 33, L"text"), S_OK);
  ExpectRequest(4, "{\"t\":\"\xe5\x9c\xa8\xe7\xba\xbf\"}");
  ExpectRequest(5, "text");
}

TEST_F(Stand, RefusesInvalidJson) {
  OpenController();
  for (const wchar_t* text : {L"", L"text", L"{\"t\":\"a\x01z\"}", L"{\"t\":\"a\tz\"}", L"[1,]"}) {
    EXPECT_EQ(CallSlot(webview_, 32, text), E_INVALIDARG);
  }
  EXPECT_EQ(CallSlot(webview_, 32, L"{\"t\":\"a\\u0001z\"}"), S_OK);
  EXPECT_EQ(CallSlot(webview_, 33, L"a\x01z"), S_OK);
  ExpectRequest(4, "{\"t\":\"a\\u0001z\"}");  // the first of its kind
  ExpectRequest(5, "a\x01z");
}

TEST_F(Stand, ImplementsNoOtherMethods) {
  OpenController();
  const std::initializer_list<size_t> webviewSlots = {7, 27, 29, 31, 40, 43, 48, 51, 57, 60};
  for (const size_t slot : webviewSlots) {
    EXPECT_EQ(CallSlot(webview_, slot, nullptr, nullptr, nullptr), E_NOTIMPL) << slot;
  }
  for (const size_t slot : {size_t{7}, size_t{13}, size_t{19}, size_t{22}}) {
    EXPECT_EQ(CallSlot(controller_, slot, nullptr, nullptr), E_NOTIMPL) << slot;
  }
  EXPECT_EQ(CallSlot(environment_, 6, nullptr, nullptr), E_NOTIMPL);
}

TEST_F(Stand, RefusesCallsAfterClose) {
  OpenController();
  RawHandler handler([](void*, void*) {});
  int64_t token = 0;
  ASSERT_EQ(CallSlot(webview_, 34, &handler, &token), S_OK);
  ASSERT_EQ(CallSlot(controller_, 24), S_OK);
  EXPECT_EQ(handler.references, 1u);
  EXPECT_EQ(::GetWindow(parent_, GW_CHILD), nullptr);
  const std::initializer_list<size_t> controllerSlots = {3, 5, 21, 23, 25, 26};
  for (const size_t slot : controllerSlots) {
    void* out[4] = {};
    EXPECT_EQ(CallSlot(controller_, slot, &out), kInvalidState) << slot;
  }
  EXPECT_EQ(CallSlot(controller_, 6, RECT{0, 0, 1, 1}), kInvalidState);
  EXPECT_EQ(CallSlot(controller_, 12, 0), kInvalidState);
  for (const size_t slot : {size_t{5}, size_t{6}, size_t{32}, size_t{33}}) {
    EXPECT_EQ(CallSlot(webview_, slot, L"1"), kInvalidState) << slot;
  }
  EXPECT_EQ(CallSlot(webview_, 34, &handler, &token), kInvalidState);
  EXPECT_TRUE(Pump([&] { return bridge_.closed == 1; }));
}

TEST_F(Stand, IsClosedWithItsParentWindow) {
  OpenController();
  ::DestroyWindow(parent_);
  EXPECT_EQ(CallSlot(controller_, 6, RECT{0, 0, 1, 1}), kInvalidState);
  EXPECT_EQ(CallSlot(webview_, 32, L"1"), kInvalidState);
}

TEST_F(Stand, IsClosedByTheLastRelease) {
  OpenController();
  ReleaseRaw(controller_);
  controller_ = nullptr;
  EXPECT_EQ(CallSlot(webview_, 32, L"1"), kInvalidState);
  EXPECT_TRUE(Pump([&] { return bridge_.closed == 1; }));
}

TEST_F(Stand, PassesOnMouseAndKeys) {
  OpenController();
  ASSERT_EQ(CallSlot(controller_, 6, RECT{0, 0, 200, 100}), S_OK);
  const HWND child = ::GetWindow(parent_, GW_CHILD);
  ::SendMessageW(child, WM_LBUTTONDOWN, MK_LBUTTON, MAKELPARAM(30, 40));
  const std::string at = Le32(30) + Le32(40) + Le32(0) + Le32(0);
  ExpectRequest(9, std::string("\x01\x01\x01\x00\x01", 5) + at);
  ::SendMessageW(child, WM_LBUTTONUP, 0, MAKELPARAM(30, 40));
  ExpectRequest(9, std::string("\x02\x01\x00\x00\x01", 5) + at);
  ::SendMessageW(child, WM_CHAR, 0xd83d, 0);
  ::SendMessageW(child, WM_CHAR, 0xde00, 0);
  ExpectRequest(10, std::string("\x02\x00", 2) + Le32(0) + "\xf0\x9f\x98\x80");
  ::SendMessageW(child, WM_KEYDOWN, VK_BACK, 0);
  ::SendMessageW(child, WM_CHAR, 8, 0);
  ExpectRequest(10, std::string("\x00\x00", 2) + Le32(VK_BACK));
  ::SendMessageW(child, WM_KEYUP, VK_BACK, 0);
  ExpectRequest(10, std::string("\x01\x00", 2) + Le32(VK_BACK));
}

TEST_F(Stand, RequestsTheNextPictureAfterABrokenOne) {
  OpenController();
  for (const uint32_t number : {5u, 6u}) {
    bridge_.Send(105, Le32(number) + "no picture");
    ExpectRequest(13, Le32(number));
  }
}

}  // namespace
