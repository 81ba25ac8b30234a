#include "webview/webview2.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "webview/raw_object.h"

namespace webview {
namespace {

// Every slot returns its own number, which identifies the slot that a call used.
constexpr HRESULT kFirstAnswer = 0x2000;

template <std::size_t slot>
HRESULT AnswerSlot(RawObject*) {
  return kFirstAnswer + static_cast<HRESULT>(slot);
}

class NumberedObject : public RawObject {
 public:
  NumberedObject() { Fill(std::make_index_sequence<kSlots>()); }

 private:
  template <std::size_t... slots>
  void Fill(std::index_sequence<slots...>) {
    (Put(slots, &AnswerSlot<slots>), ...);
  }
};

struct SlotRow {
  const char* method;
  int slot;  // as published
  HRESULT (*call)(NumberedObject& object);
};

// The published slot numbers, written down independently of our declarations.
const SlotRow kSlotRows[] = {
    {"Environment.CreateCoreWebView2Controller", 3,
     [](NumberedObject& o) {
       return o.As<ICoreWebView2Environment>()->CreateCoreWebView2Controller(nullptr, nullptr);
     }},
    {"Controller.put_IsVisible", 4,
     [](NumberedObject& o) { return o.As<ICoreWebView2Controller>()->put_IsVisible(TRUE); }},
    {"Controller.put_Bounds", 6,
     [](NumberedObject& o) { return o.As<ICoreWebView2Controller>()->put_Bounds(RECT{}); }},
    {"Controller.MoveFocus", 12,
     [](NumberedObject& o) {
       return o.As<ICoreWebView2Controller>()->MoveFocus(MoveFocusReason::Programmatic);
     }},
    {"Controller.NotifyParentWindowPositionChanged", 23,
     [](NumberedObject& o) {
       return o.As<ICoreWebView2Controller>()->NotifyParentWindowPositionChanged();
     }},
    {"Controller.Close", 24,
     [](NumberedObject& o) { return o.As<ICoreWebView2Controller>()->Close(); }},
    {"Controller.get_CoreWebView2", 25,
     [](NumberedObject& o) { return o.As<ICoreWebView2Controller>()->get_CoreWebView2(nullptr); }},
    {"WebView.Navigate", 5, [](NumberedObject& o) { return o.As<ICoreWebView2>()->Navigate(L""); }},
    {"WebView.NavigateToString", 6,
     [](NumberedObject& o) { return o.As<ICoreWebView2>()->NavigateToString(L""); }},
    {"WebView.add_ProcessFailed", 25,
     [](NumberedObject& o) { return o.As<ICoreWebView2>()->add_ProcessFailed(nullptr, nullptr); }},
    {"WebView.remove_ProcessFailed", 26,
     [](NumberedObject& o) { return o.As<ICoreWebView2>()->remove_ProcessFailed({}); }},
    {"ProcessFailedEventArgs.get_ProcessFailedKind", 3,
     [](NumberedObject& o) {
       return o.As<ICoreWebView2ProcessFailedEventArgs>()->get_ProcessFailedKind(nullptr);
     }},
    {"ProcessFailedHandler.Invoke", 3,
     [](NumberedObject& o) {
       return o.As<ICoreWebView2ProcessFailedEventHandler>()->Invoke(nullptr, nullptr);
     }},
    {"WebView.PostWebMessageAsJson", 32,
     [](NumberedObject& o) { return o.As<ICoreWebView2>()->PostWebMessageAsJson(L""); }},
    {"WebView.add_WebMessageReceived", 34,
     [](NumberedObject& o) {
       return o.As<ICoreWebView2>()->add_WebMessageReceived(nullptr, nullptr);
     }},
    {"WebView.remove_WebMessageReceived", 35,
     [](NumberedObject& o) { return o.As<ICoreWebView2>()->remove_WebMessageReceived({}); }},
    {"WebMessageReceivedEventArgs.TryGetWebMessageAsString", 5,
     [](NumberedObject& o) {
       return o.As<ICoreWebView2WebMessageReceivedEventArgs>()->TryGetWebMessageAsString(nullptr);
     }},
    {"EnvironmentCompletedHandler.Invoke", 3,
     [](NumberedObject& o) {
       return o.As<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler>()->Invoke(S_OK,
                                                                                         nullptr);
     }},
    {"ControllerCompletedHandler.Invoke", 3,
     [](NumberedObject& o) {
       return o.As<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler>()->Invoke(S_OK,
                                                                                        nullptr);
     }},
    {"WebMessageReceivedHandler.Invoke", 3,
     [](NumberedObject& o) {
       return o.As<ICoreWebView2WebMessageReceivedEventHandler>()->Invoke(nullptr, nullptr);
     }},
};

TEST(WebView2Interfaces, CallThroughThePublishedSlots) {
  for (const SlotRow& row : kSlotRows) {
    NumberedObject object;
    EXPECT_EQ(row.call(object), kFirstAnswer + row.slot) << row.method;
  }
}

TEST(WebView2Interfaces, PassArgumentsAsPublished) {
  static RECT seenBounds;
  static long long seenToken;
  static int seenReason;
  RawObject object;
  object.Put(
      6, +[](RawObject*, RECT bounds) -> HRESULT {
        seenBounds = bounds;
        return S_OK;
      });
  object.Put(
      12, +[](RawObject*, int reason) -> HRESULT {
        seenReason = reason;
        return S_OK;
      });
  object.Put(
      35, +[](RawObject*, long long token) -> HRESULT {
        seenToken = token;
        return S_OK;
      });
  object.As<ICoreWebView2Controller>()->put_Bounds({1, 2, 3, 4});
  object.As<ICoreWebView2Controller>()->MoveFocus(MoveFocusReason::Previous);
  object.As<ICoreWebView2>()->remove_WebMessageReceived({0x123456789abcdef0});
  EXPECT_EQ(seenBounds.left, 1);
  EXPECT_EQ(seenBounds.top, 2);
  EXPECT_EQ(seenBounds.right, 3);
  EXPECT_EQ(seenBounds.bottom, 4);
  EXPECT_EQ(seenReason, 2);
  EXPECT_EQ(seenToken, 0x123456789abcdef0);
}

struct IdRow {
  const wchar_t* published;
  const GUID& declared;
};

TEST(WebView2Interfaces, HaveThePublishedIds) {
  const IdRow rows[] = {
      {L"{b96d755e-0319-4e92-a296-23436f46a1fc}", kIidEnvironment},
      {L"{4d00c0d1-9434-4eb6-8078-8697a560334f}", kIidController},
      {L"{76eceacb-0462-4d94-ac83-423a6793775e}", kIidWebView},
      {L"{0f99a40c-e962-4207-9e92-e3d542eff849}", kIidWebMessageReceivedEventArgs},
      {L"{8155a9a4-1474-4a86-8cae-151b0fa6b8ca}", kIidProcessFailedEventArgs},
      {L"{79e0aea4-990b-42d9-aa1d-0fcc2e5bc7f1}", kIidProcessFailedHandler},
      {L"{4e8a3389-c9d8-4bd2-b6b5-124fee6cc14d}", kIidEnvironmentCompletedHandler},
      {L"{6c4819f3-c9b7-4260-8127-c9f5bde7f68c}", kIidControllerCompletedHandler},
      {L"{57213f19-00e6-49fa-8e07-898ea01ecbd2}", kIidWebMessageReceivedHandler},
  };
  for (const IdRow& row : rows) {
    GUID wanted{};
    ASSERT_EQ(::IIDFromString(row.published, &wanted), S_OK);
    EXPECT_NE(IsEqualGUID(wanted, row.declared), 0) << testing::PrintToString(row.published);
  }
}

}  // namespace
}  // namespace webview
