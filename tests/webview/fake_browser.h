#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "webview/com.h"
#include "webview/raw_object.h"

// Fakes of the runtime's COM objects, limited to the methods that the host uses.
namespace webview {

inline constexpr LONGLONG kToken = 0x1122334455667788;
inline constexpr LONGLONG kFailureToken = 0x2233445566778899;

// The host's calls to the browser, in order.
using Calls = std::vector<std::string>;

// Runs once inside one of the browser's calls, as when the runtime dispatches a message there.
struct Interruption {
  std::string call;
  std::function<void()> action;

  void At(std::string_view current, const RawObject& object) {
    if (call != current || !action) return;
    std::exchange(action, nullptr)();
    EXPECT_GT(object.References(), 1) << call << ": the caller keeps no reference";
  }
};

class FakeWebView : public RawObject {
 public:
  FakeWebView(Calls& calls, Interruption& interruption)
      : calls_(calls), interruption_(interruption) {
    Put(5, &Navigate);
    Put(6, &NavigateToString);
    Put(25, &AddProcessFailed);
    Put(26, &RemoveProcessFailed);
    Put(32, &PostJson);
    Put(34, &AddMessageReceived);
    Put(35, &RemoveMessageReceived);
  }

  HRESULT navigateResult = S_OK;
  std::wstring url;
  std::wstring html;
  HRESULT postResult = S_OK;
  std::vector<std::wstring> posted;
  ComPtr<ICoreWebView2WebMessageReceivedEventHandler> handler;
  ComPtr<ICoreWebView2ProcessFailedEventHandler> failureHandler;

 private:
  static HRESULT Navigate(FakeWebView* self, LPCWSTR url) {
    self->calls_.push_back("Navigate");
    self->url = url;
    self->interruption_.At("Navigate", *self);
    return self->navigateResult;
  }
  static HRESULT NavigateToString(FakeWebView* self, LPCWSTR html) {
    self->calls_.push_back("NavigateToString");
    self->html = html;
    self->interruption_.At("NavigateToString", *self);
    return self->navigateResult;
  }
  static HRESULT PostJson(FakeWebView* self, LPCWSTR json) {
    self->posted.emplace_back(json);
    self->interruption_.At("PostWebMessageAsJson", *self);
    return self->postResult;
  }
  static HRESULT AddMessageReceived(FakeWebView* self,
                                    ICoreWebView2WebMessageReceivedEventHandler* handler,
                                    EventRegistrationToken* token) {
    self->calls_.push_back("add_WebMessageReceived");
    self->handler = ComPtr<ICoreWebView2WebMessageReceivedEventHandler>::Share(handler);
    self->interruption_.At("add_WebMessageReceived", *self);
    token->value = kToken;
    return S_OK;
  }
  static HRESULT RemoveMessageReceived(FakeWebView* self, EventRegistrationToken token) {
    self->calls_.push_back("remove_WebMessageReceived");
    EXPECT_EQ(token.value, kToken);
    self->interruption_.At("remove_WebMessageReceived", *self);
    return S_OK;
  }

  static HRESULT AddProcessFailed(FakeWebView* self,
                                  ICoreWebView2ProcessFailedEventHandler* handler,
                                  EventRegistrationToken* token) {
    self->calls_.push_back("add_ProcessFailed");
    self->failureHandler = ComPtr<ICoreWebView2ProcessFailedEventHandler>::Share(handler);
    self->interruption_.At("add_ProcessFailed", *self);
    token->value = kFailureToken;
    return S_OK;
  }
  static HRESULT RemoveProcessFailed(FakeWebView* self, EventRegistrationToken token) {
    self->calls_.push_back("remove_ProcessFailed");
    EXPECT_EQ(token.value, kFailureToken);
    self->interruption_.At("remove_ProcessFailed", *self);
    return S_OK;
  }

  Calls& calls_;
  Interruption& interruption_;
};

class FakeController : public RawObject {
 public:
  FakeController(Calls& calls, Interruption& interruption, FakeWebView& webView)
      : calls_(calls), interruption_(interruption), webView_(webView) {
    Put(4, &PutVisible);
    Put(6, &PutBounds);
    Put(12, &MoveFocus);
    Put(23, &Moved);
    Put(24, &Close);
    Put(25, &GetWebView);
  }

  HRESULT getWebViewResult = S_OK;
  RECT bounds{};

 private:
  static HRESULT PutVisible(FakeController* self, BOOL visible) {
    self->calls_.push_back(visible != FALSE ? "show" : "hide");
    self->interruption_.At("put_IsVisible", *self);
    return S_OK;
  }
  static HRESULT PutBounds(FakeController* self, RECT bounds) {
    self->calls_.push_back("put_Bounds");
    self->bounds = bounds;
    self->interruption_.At("put_Bounds", *self);
    return S_OK;
  }
  static HRESULT MoveFocus(FakeController* self, int reason) {
    EXPECT_EQ(reason, 0);
    self->calls_.push_back("MoveFocus");
    self->interruption_.At("MoveFocus", *self);
    return S_OK;
  }
  static HRESULT Moved(FakeController* self) {
    self->calls_.push_back("moved");
    self->interruption_.At("NotifyParentWindowPositionChanged", *self);
    return S_OK;
  }
  static HRESULT Close(FakeController* self) {
    self->calls_.push_back("Close");
    self->interruption_.At("Close", *self);
    return S_OK;
  }
  static HRESULT GetWebView(FakeController* self, ICoreWebView2** webView) {
    self->interruption_.At("get_CoreWebView2", *self);
    *webView = nullptr;
    if (FAILED(self->getWebViewResult)) return self->getWebViewResult;
    *webView = self->webView_.As<ICoreWebView2>();
    (*webView)->AddRef();
    return S_OK;
  }

  Calls& calls_;
  Interruption& interruption_;
  FakeWebView& webView_;
};

class FakeEnvironment : public RawObject {
 public:
  FakeEnvironment(Calls& calls, Interruption& interruption)
      : calls_(calls), interruption_(interruption) {
    Put(3, &CreateController);
  }

  HRESULT createResult = S_OK;
  ICoreWebView2Controller* completeWith = nullptr;  // at once, inside the call
  HWND parent = nullptr;
  ComPtr<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler> handler;

 private:
  static HRESULT CreateController(
      FakeEnvironment* self, HWND parent,
      ICoreWebView2CreateCoreWebView2ControllerCompletedHandler* handler) {
    self->calls_.push_back("CreateController");
    self->parent = parent;
    self->handler =
        ComPtr<ICoreWebView2CreateCoreWebView2ControllerCompletedHandler>::Share(handler);
    self->interruption_.At("CreateCoreWebView2Controller", *self);
    if (self->completeWith != nullptr) handler->Invoke(S_OK, self->completeWith);
    return self->createResult;
  }

  Calls& calls_;
  Interruption& interruption_;
};

// A posted message. TryGetWebMessageAsString returns `text`, or E_INVALIDARG if it is empty.
class FakeMessage : public RawObject {
 public:
  explicit FakeMessage(std::optional<std::wstring> text) : text_(std::move(text)) {
    Put(5, &TryGetString);
  }

 private:
  static HRESULT TryGetString(FakeMessage* self, LPWSTR* text) {
    *text = nullptr;
    if (!self->text_) return E_INVALIDARG;
    const std::size_t sizeBytes = (self->text_->size() + 1) * sizeof(wchar_t);
    *text = static_cast<LPWSTR>(::CoTaskMemAlloc(sizeBytes));
    std::char_traits<wchar_t>::copy(*text, self->text_->c_str(), self->text_->size() + 1);
    return S_OK;
  }

  const std::optional<std::wstring> text_;
};

// A failed process. `kind` is the runtime's number; nullopt makes the call fail.
class FakeFailure : public RawObject {
 public:
  explicit FakeFailure(std::optional<int> kind) : kind_(kind) { Put(3, &GetKind); }

 private:
  static HRESULT GetKind(FakeFailure* self, int* kind) {
    if (!self->kind_) return E_FAIL;
    *kind = *self->kind_;
    return S_OK;
  }

  const std::optional<int> kind_;
};

}  // namespace webview
