#include "webui/web_host.h"

#include <optional>
#include <utility>

#include "platform/files.h"
#include "platform/known_folders.h"
#include "webui/com.h"
#include "webui/page_source.h"

namespace webui {
namespace {

constexpr wchar_t kEnvironmentFailed[] = L"WebView2 环境创建失败，请确认已安装 WebView2 运行时。";
constexpr wchar_t kControllerFailed[] = L"WebView2 控制器创建失败。";
constexpr wchar_t kPageFailed[] = L"界面加载失败。";

// The host proper. The runtime holds the callbacks for as long as it likes; they hold this only
// weakly, so a callback that comes after Close() or the owner's end finds nothing to do.
//
// The runtime may dispatch messages inside any of its calls, and the owner may call Close() or end
// the host from there. So every call goes through a reference of its own, and what follows the call
// first looks at closed_.
class Control : public std::enable_shared_from_this<Control> {
 public:
  Control(HWND window, WebHostEvents events, ReadPage readPage)
      : window_(window), events_(std::move(events)), readPage_(std::move(readPage)) {}

  void Start(const std::wstring& userDataFolder, const CreateEnvironment& create);
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
  void ReportEnvironmentFailure();
  void ReportControllerFailure();
  void ListenToPage(ICoreWebView2& webView);
  void ShowPage(ICoreWebView2& webView);
  void AdoptWindowState(ICoreWebView2Controller& controller);

  const HWND window_;
  const WebHostEvents events_;
  const ReadPage readPage_;
  bool closed_ = false;
  bool failed_ = false;  // a failure may come both as a result and through its handler
  ComPtr<ICoreWebView2Environment> environment_;
  ComPtr<ICoreWebView2Controller> controller_;
  ComPtr<ICoreWebView2> webView_;
  std::optional<EventRegistrationToken> messageToken_;
};

void Control::Start(const std::wstring& userDataFolder, const CreateEnvironment& create) {
  const ComPtr<EnvironmentCompleted> handler(new EnvironmentCompleted(
      kIidEnvironmentCompletedHandler,
      [weak = weak_from_this()](HRESULT result, ICoreWebView2Environment* environment) {
        if (const auto self = weak.lock()) self->OnEnvironment(result, environment);
      }));
  if (FAILED(create(userDataFolder, handler.Get()))) ReportEnvironmentFailure();
}

void Control::OnEnvironment(HRESULT result, ICoreWebView2Environment* environment) {
  if (closed_) return;
  if (FAILED(result) || environment == nullptr) return ReportEnvironmentFailure();
  environment_ = ComPtr<ICoreWebView2Environment>::Share(environment);
  const auto kept = ComPtr<ICoreWebView2Environment>::Share(environment);
  const ComPtr<ControllerCompleted> handler(new ControllerCompleted(
      kIidControllerCompletedHandler,
      [weak = weak_from_this()](HRESULT created, ICoreWebView2Controller* controller) {
        if (const auto self = weak.lock()) {
          self->OnController(created, controller);
        } else if (controller != nullptr) {
          controller->Close();  // nobody is left to do it
        }
      }));
  if (FAILED(kept->CreateCoreWebView2Controller(window_, handler.Get()))) {
    ReportControllerFailure();
  }
}

void Control::OnController(HRESULT result, ICoreWebView2Controller* given) {
  if (closed_) {
    if (given != nullptr) given->Close();
    return;
  }
  if (FAILED(result) || given == nullptr) return ReportControllerFailure();
  controller_ = ComPtr<ICoreWebView2Controller>::Share(given);
  const auto controller = Controller();
  ComPtr<ICoreWebView2> webView;
  if (FAILED(controller->get_CoreWebView2(webView.Receive()))) webView.Reset();
  if (closed_) return;
  webView_ = ComPtr<ICoreWebView2>::Share(webView.Get());
  FitToWindow();
  if (closed_) return;
  if (!webView) return ReportControllerFailure();
  ListenToPage(*webView.Get());
  if (!closed_) ShowPage(*webView.Get());
  if (!closed_) AdoptWindowState(*controller.Get());
}

// Before the page is shown: its first message must find a listener.
void Control::ListenToPage(ICoreWebView2& webView) {
  const ComPtr<WebMessageReceived> handler(new WebMessageReceived(
      kIidWebMessageReceivedHandler,
      [weak = weak_from_this()](ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs* args) {
        if (const auto self = weak.lock()) self->OnPageMessage(args);
      }));
  EventRegistrationToken token{};
  if (SUCCEEDED(webView.add_WebMessageReceived(handler.Get(), &token))) messageToken_ = token;
}

void Control::ShowPage(ICoreWebView2& webView) {
  const std::wstring page = readPage_();
  const HRESULT result =
      page.empty()
          ? webView.Navigate(PageFileUrl(platform::ProgramPath(), platform::IsFile).c_str())
          : webView.NavigateToString(page.c_str());
  if (FAILED(result) && !closed_) events_.log(kPageFailed);
}

// What the window was told while there was no control yet.
void Control::AdoptWindowState(ICoreWebView2Controller& controller) {
  if (::IsIconic(window_) != FALSE) controller.put_IsVisible(FALSE);
  if (!closed_ && ::GetFocus() == window_) controller.MoveFocus(MoveFocusReason::Programmatic);
}

void Control::OnPageMessage(ICoreWebView2WebMessageReceivedEventArgs* args) {
  if (closed_ || args == nullptr) return;
  LPWSTR text = nullptr;
  if (FAILED(args->TryGetWebMessageAsString(&text)) || text == nullptr) return;
  const std::unique_ptr<wchar_t, decltype(&::CoTaskMemFree)> owned(text, &::CoTaskMemFree);
  events_.pageMessage(owned.get());
}

void Control::FitToWindow() {
  RECT area{};
  const auto controller = Controller();
  if (controller && ::GetClientRect(window_, &area) != FALSE) controller->put_Bounds(area);
}

void Control::ReportEnvironmentFailure() {
  if (closed_ || std::exchange(failed_, true)) return;
  events_.log(kEnvironmentFailed);
  events_.environmentFailed(kEnvironmentFailed);
}

void Control::ReportControllerFailure() {
  if (closed_ || std::exchange(failed_, true)) return;
  events_.log(kControllerFailed);
}

// In the runtime's own order: handlers, controller, references, environment. The members are empty
// before the first call, so that nothing inside it finds a control that is on its way out.
void Control::Close() {
  if (std::exchange(closed_, true)) return;
  const auto environment = std::move(environment_);
  const auto controller = std::move(controller_);
  const auto webView = std::move(webView_);
  if (webView && messageToken_) webView->remove_WebMessageReceived(*messageToken_);
  if (controller) controller->Close();
}

class WebView2Host final : public WebHost {
 public:
  WebView2Host(HWND window, WebHostEvents events, ReadPage readPage)
      : control_(std::make_shared<Control>(window, std::move(events), std::move(readPage))) {}
  ~WebView2Host() override { control_->Close(); }

  Control& GetControl() { return *control_; }

  bool IsUp() const override { return static_cast<bool>(control_->WebView()); }
  bool PostJson(const std::wstring& json) override {
    const auto webView = control_->WebView();
    if (!webView) return true;
    const bool isWhole = json.find(L'\0') == std::wstring::npos;  // as far as the control reads
    return isWhole && SUCCEEDED(webView->PostWebMessageAsJson(json.c_str()));
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
  void Close() override { control_->Close(); }

 private:
  const std::shared_ptr<Control> control_;
};

}  // namespace

std::unique_ptr<WebHost> WebCreate(HWND window, const std::wstring& userDataFolder,
                                   WebHostEvents events, const CreateEnvironment& create,
                                   ReadPage readPage) {
  auto host = std::make_unique<WebView2Host>(window, std::move(events), std::move(readPage));
  host->GetControl().Start(userDataFolder, create);
  return host;
}

}  // namespace webui
