#include <optional>
#include <span>
#include <utility>

#include "platform/files.h"
#include "platform/modules_win.h"
#include "platform/path.h"
#include "platform/system_error.h"
#include "text/utf8.h"
#include "webview/com.h"
#include "webview/web_create.h"

namespace webview {
namespace {

constexpr wchar_t kEnvironmentFailed[] = L"WebView2 环境创建失败，请确认已安装 WebView2 运行时。";
constexpr wchar_t kControllerFailed[] = L"WebView2 控制器创建失败。";
constexpr wchar_t kPageFailed[] = L"界面加载失败。";
constexpr wchar_t kOtherFolder[] = L"提示：界面数据文件夹不可用，改用桌面用户的文件夹：";

constexpr WORD kPageResource = 210;

std::wstring DescribeFailure(HRESULT result) {
  return FailureCause(static_cast<std::uint32_t>(result),
                      [](std::uint32_t code) { return platform::SystemErrorText(code); });
}

// Shared by the successive controls of a host.
struct Setup {
  HWND window = nullptr;
  DataFolders folders;
  WebEventHandler onEvent;
  CreateEnvironment create;
  ReadPage readPage;

  // Makes the other folder the usual one from now on, if there is one and it might help.
  bool TakeOtherFolder(HRESULT result) {
    if (folders.other.empty() || !MayBeTheFolder(static_cast<std::uint32_t>(result))) return false;
    folders.usual = std::exchange(folders.other, {});
    return true;
  }
  void Log(std::wstring text) const { onEvent({WebEvent::Kind::Log, std::move(text)}); }
};

// One control, from its creation to its end. The runtime may keep the callbacks for any time; they
// hold this object weakly, so that a callback after Close() or after the owner's end does nothing.
//
// The runtime may dispatch messages inside any of its calls, and the owner may then call Close() or
// destroy the host. So each call goes through a reference of its own, and the code after it checks
// closed_ first.
class Control : public std::enable_shared_from_this<Control> {
 public:
  // `isAnother`: replaces an earlier control.
  Control(std::shared_ptr<Setup> setup, bool isAnother)
      : setup_(std::move(setup)), isAnother_(isAnother) {}

  void Start();
  void ShowPage();
  void Close();

  // References for one call; empty while there is no control.
  [[nodiscard]] ComPtr<ICoreWebView2Controller> Controller() const {
    return ComPtr<ICoreWebView2Controller>::Share(controller_.Get());
  }
  [[nodiscard]] ComPtr<ICoreWebView2> WebView() const {
    return ComPtr<ICoreWebView2>::Share(webView_.Get());
  }
  void FitToWindow();

 private:
  void OnEnvironment(HRESULT result, ICoreWebView2Environment* environment);
  void OnController(HRESULT result, ICoreWebView2Controller* controller);
  void OnPageMessage(ICoreWebView2WebMessageReceivedEventArgs* args);
  void OnProcessFailed(ICoreWebView2ProcessFailedEventArgs* args);
  // True when the other folder is tried instead of reporting the failure.
  bool TryOtherFolder(HRESULT result);
  void ReportEnvironmentFailure(HRESULT result);
  void ReportControllerFailure(HRESULT result);
  void ListenToPage(ICoreWebView2& webView);
  void ListenToFailures(ICoreWebView2& webView);
  void AdoptWindowState(ICoreWebView2Controller& controller);

  const std::shared_ptr<Setup> setup_;
  const bool isAnother_;
  bool closed_ = false;
  bool failed_ = false;  // one failure may come both as a result and through its handler
  ComPtr<ICoreWebView2Environment> environment_;
  ComPtr<ICoreWebView2Controller> controller_;
  ComPtr<ICoreWebView2> webView_;
  std::optional<EventRegistrationToken> messageToken_;
  std::optional<EventRegistrationToken> failureToken_;
};

void Control::Start() {
  if (closed_) return;
  const ComPtr<EnvironmentCompleted> handler(new EnvironmentCompleted(
      kIidEnvironmentCompletedHandler,
      [weak = weak_from_this()](HRESULT result, ICoreWebView2Environment* environment) {
        if (const auto self = weak.lock()) self->OnEnvironment(result, environment);
      }));
  const HRESULT result = setup_->create(setup_->folders.usual, handler.Get());
  // After a failure the handler may never be called, or may have reported it already.
  if (FAILED(result)) ReportEnvironmentFailure(result);
}

void Control::OnEnvironment(HRESULT result, ICoreWebView2Environment* environment) {
  if (closed_) return;
  if (FAILED(result) || environment == nullptr) return ReportEnvironmentFailure(result);
  environment_ = ComPtr<ICoreWebView2Environment>::Share(environment);
  // Close() inside the call below would release environment_.
  const auto kept = ComPtr<ICoreWebView2Environment>::Share(environment);
  const ComPtr<ControllerCompleted> handler(new ControllerCompleted(
      kIidControllerCompletedHandler,
      [weak = weak_from_this()](HRESULT created, ICoreWebView2Controller* controller) {
        if (const auto self = weak.lock()) {
          self->OnController(created, controller);
        } else if (controller != nullptr) {
          controller->Close();  // its owner is gone
        }
      }));
  const HRESULT asked = kept->CreateCoreWebView2Controller(setup_->window, handler.Get());
  if (FAILED(asked)) ReportControllerFailure(asked);
}

void Control::OnController(HRESULT result, ICoreWebView2Controller* given) {
  if (closed_) {
    // The runtime delivers a controller that was cancelled in the meantime all the same.
    if (given != nullptr) given->Close();
    return;
  }
  if (FAILED(result) || given == nullptr) return ReportControllerFailure(result);
  controller_ = ComPtr<ICoreWebView2Controller>::Share(given);
  const auto controller = Controller();
  ComPtr<ICoreWebView2> webView;
  const HRESULT got = controller->get_CoreWebView2(webView.Receive());
  // A view that comes with an error does not count.
  if (FAILED(got)) webView.Reset();
  if (closed_) return;
  webView_ = ComPtr<ICoreWebView2>::Share(webView.Get());
  FitToWindow();
  if (closed_) return;
  if (!webView) return ReportControllerFailure(got);
  ListenToPage(*webView.Get());
  if (!closed_) ListenToFailures(*webView.Get());
  if (!closed_) ShowPage();
  if (!closed_) AdoptWindowState(*controller.Get());
}

// Before the page is shown, or its first message would be lost.
void Control::ListenToPage(ICoreWebView2& webView) {
  const ComPtr<WebMessageReceived> handler(new WebMessageReceived(
      kIidWebMessageReceivedHandler,
      [weak = weak_from_this()](ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs* args) {
        if (const auto self = weak.lock()) self->OnPageMessage(args);
      }));
  EventRegistrationToken token{};
  if (SUCCEEDED(webView.add_WebMessageReceived(handler.Get(), &token))) messageToken_ = token;
}

void Control::ListenToFailures(ICoreWebView2& webView) {
  const ComPtr<ProcessFailed> handler(new ProcessFailed(
      kIidProcessFailedHandler,
      [weak = weak_from_this()](ICoreWebView2*, ICoreWebView2ProcessFailedEventArgs* args) {
        if (const auto self = weak.lock()) self->OnProcessFailed(args);
      }));
  EventRegistrationToken token{};
  if (SUCCEEDED(webView.add_ProcessFailed(handler.Get(), &token))) failureToken_ = token;
}

void Control::ShowPage() {
  const auto webView = WebView();
  if (!webView) return;
  const std::wstring page = setup_->readPage();
  // NavigateToString() refuses long texts, by measurement from 1.5 MB; a test of the released
  // program keeps its page below that.
  const HRESULT result =
      page.empty()
          ? webView->Navigate(PageFileUrl(platform::ProgramPath(), platform::IsFile).c_str())
          : webView->NavigateToString(page.c_str());
  if (FAILED(result) && !closed_) setup_->Log(kPageFailed);
}

// Catches up with messages that the window received before the control existed. The keyboard focus
// may have belonged to the control that this one replaces; then no window has it now.
void Control::AdoptWindowState(ICoreWebView2Controller& controller) {
  const HWND window = setup_->window;
  if (::IsIconic(window) != FALSE) controller.put_IsVisible(FALSE);
  if (closed_) return;
  const bool isActive = isAnother_ && ::GetForegroundWindow() == window;
  if (isActive || ::GetFocus() == window) controller.MoveFocus(MoveFocusReason::Programmatic);
}

void Control::OnPageMessage(ICoreWebView2WebMessageReceivedEventArgs* args) {
  if (closed_ || args == nullptr) return;
  LPWSTR text = nullptr;
  // Fails for anything but a string; the built-in page posts only strings.
  if (FAILED(args->TryGetWebMessageAsString(&text)) || text == nullptr) return;
  const std::unique_ptr<wchar_t, decltype(&::CoTaskMemFree)> owned(text, &::CoTaskMemFree);
  setup_->onEvent({WebEvent::Kind::PageMessage, owned.get()});
}

void Control::OnProcessFailed(ICoreWebView2ProcessFailedEventArgs* args) {
  if (closed_ || args == nullptr) return;
  auto kind = ProcessFailedKind::Unknown;
  if (FAILED(args->get_ProcessFailedKind(&kind))) kind = ProcessFailedKind::Unknown;
  setup_->onEvent({WebEvent::Kind::ProcessFailed, {}, kind});
}

void Control::FitToWindow() {
  RECT area{};
  const auto controller = Controller();
  if (controller && ::GetClientRect(setup_->window, &area) != FALSE) controller->put_Bounds(area);
}

bool Control::TryOtherFolder(HRESULT result) {
  if (!setup_->TakeOtherFolder(result)) return false;
  setup_->Log(kOtherFolder + setup_->folders.usual);
  // Only asks for it: WebView2 gives no callbacks for objects created inside a callback.
  if (!closed_) setup_->onEvent({WebEvent::Kind::OtherFolderWanted, {}});
  return true;
}

void Control::ReportEnvironmentFailure(HRESULT result) {
  if (closed_ || std::exchange(failed_, true)) return;
  if (TryOtherFolder(result)) return;
  const std::wstring cause = DescribeFailure(result);
  setup_->Log(kEnvironmentFailed);
  setup_->Log(cause);
  setup_->onEvent(
      {WebEvent::Kind::EnvironmentFailed, std::wstring(kEnvironmentFailed) + L"\r\n" + cause});
}

void Control::ReportControllerFailure(HRESULT result) {
  if (closed_ || std::exchange(failed_, true)) return;
  if (TryOtherFolder(result)) return;
  setup_->Log(kControllerFailed);
  setup_->Log(DescribeFailure(result));
}

// In the runtime's own order: handlers, controller, references, environment. The members are
// emptied first: code that runs inside one of these calls must not use a control that is being
// closed.
void Control::Close() {
  if (std::exchange(closed_, true)) return;
  // On return these are released in reverse order, the environment last.
  const auto environment = std::move(environment_);
  const auto controller = std::move(controller_);
  const auto webView = std::move(webView_);
  if (webView && messageToken_) webView->remove_WebMessageReceived(*messageToken_);
  if (webView && failureToken_) webView->remove_ProcessFailed(*failureToken_);
  if (controller) controller->Close();
}

class WebView2Host final : public WebHost {
 public:
  explicit WebView2Host(Setup setup)
      : setup_(std::make_shared<Setup>(std::move(setup))),
        control_(std::make_shared<Control>(setup_, false)) {}
  ~WebView2Host() override { control_->Close(); }

  void Start() { Keep()->Start(); }

  bool IsUp() const override { return static_cast<bool>(control_->WebView()); }
  bool PostJson(const std::wstring& json) override {
    const auto webView = control_->WebView();
    if (!webView) return true;
    // The control reads up to the first null.
    const bool isWhole = json.find(L'\0') == std::wstring::npos;
    return isWhole && Takes(webView->PostWebMessageAsJson(json.c_str()));
  }
  void FitToWindow() override { control_->FitToWindow(); }
  void SetVisible(bool visible) override {
    if (const auto controller = control_->Controller()) {
      controller->put_IsVisible(visible ? TRUE : FALSE);
    }
  }
  void WindowMoved() override {
    if (const auto controller = control_->Controller()) {
      controller->NotifyParentWindowPositionChanged();
    }
  }
  void Focus() override {
    if (const auto controller = control_->Controller()) {
      controller->MoveFocus(MoveFocusReason::Programmatic);
    }
  }
  void ShowPage() override { Keep()->ShowPage(); }
  // The new control is in place before the old one is closed: code that runs inside Close() must
  // not find the old one.
  void MakeAnew() override {
    if (closed_) return;
    const auto made = std::make_shared<Control>(setup_, true);
    std::exchange(control_, made)->Close();
    made->Start();
  }
  void Close() override {
    closed_ = true;
    Keep()->Close();
  }

 private:
  // Keeps the control alive during a call that may destroy the host.
  [[nodiscard]] std::shared_ptr<Control> Keep() const { return control_; }
  // A control whose browser is gone refuses every text; that does not make this one invalid.
  static bool Takes(HRESULT result) { return SUCCEEDED(result) || result == kControlGone; }

  const std::shared_ptr<Setup> setup_;
  std::shared_ptr<Control> control_;
  bool closed_ = false;
};

}  // namespace

std::unique_ptr<WebHost> WebCreate(HWND window, DataFolders folders, WebEventHandler onEvent,
                                   CreateEnvironment create, ReadPage readPage) {
  auto host = std::make_unique<WebView2Host>(Setup{window, std::move(folders), std::move(onEvent),
                                                   std::move(create), std::move(readPage)});
  host->Start();
  return host;
}

std::wstring PageFromResources() {
  const std::span<const std::byte> bytes = platform::FindResourceBytes(nullptr, kPageResource);
  return text::FromUtf8({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

}  // namespace webview
