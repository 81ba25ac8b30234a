#include "webui/web_host.h"

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
class Control : public std::enable_shared_from_this<Control> {
 public:
  Control(HWND window, WebHostEvents events, ReadPage readPage)
      : window_(window), events_(std::move(events)), readPage_(std::move(readPage)) {}

  void Start(const std::wstring& userDataFolder, const CreateEnvironment& create);
  void Close();

  [[nodiscard]] ICoreWebView2Controller* Controller() const { return controller_.Get(); }
  [[nodiscard]] ICoreWebView2* WebView() const { return webView_.Get(); }
  void FitToWindow();

 private:
  void OnEnvironment(HRESULT result, ICoreWebView2Environment* environment);
  void OnController(HRESULT result, ICoreWebView2Controller* controller);
  void OnPageMessage(ICoreWebView2WebMessageReceivedEventArgs* args);
  void ReportEnvironmentFailure();
  void ReportControllerFailure();
  void ListenToPage();
  void ShowPage();
  void AdoptWindowState();

  const HWND window_;
  const WebHostEvents events_;
  const ReadPage readPage_;
  bool closed_ = false;
  bool failed_ = false;  // a failure may come both as a result and through its handler
  ComPtr<ICoreWebView2Environment> environment_;
  ComPtr<ICoreWebView2Controller> controller_;
  ComPtr<ICoreWebView2> webView_;
  EventRegistrationToken messageToken_{};
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
  const ComPtr<ControllerCompleted> handler(new ControllerCompleted(
      kIidControllerCompletedHandler,
      [weak = weak_from_this()](HRESULT created, ICoreWebView2Controller* controller) {
        if (const auto self = weak.lock()) {
          self->OnController(created, controller);
        } else if (controller != nullptr) {
          controller->Close();  // nobody is left to do it
        }
      }));
  if (FAILED(environment->CreateCoreWebView2Controller(window_, handler.Get()))) {
    ReportControllerFailure();
  }
}

void Control::OnController(HRESULT result, ICoreWebView2Controller* controller) {
  if (closed_) {
    if (controller != nullptr) controller->Close();
    return;
  }
  if (FAILED(result) || controller == nullptr) return ReportControllerFailure();
  controller_ = ComPtr<ICoreWebView2Controller>::Share(controller);
  if (FAILED(controller_->get_CoreWebView2(webView_.Receive()))) webView_.Reset();
  FitToWindow();
  if (!webView_) return ReportControllerFailure();
  ListenToPage();
  ShowPage();
  AdoptWindowState();
}

// Before the page is shown: its first message must find a listener.
void Control::ListenToPage() {
  const ComPtr<WebMessageReceived> handler(new WebMessageReceived(
      kIidWebMessageReceivedHandler,
      [weak = weak_from_this()](ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs* args) {
        if (const auto self = weak.lock()) self->OnPageMessage(args);
      }));
  webView_->add_WebMessageReceived(handler.Get(), &messageToken_);
}

void Control::ShowPage() {
  const std::wstring page = readPage_();
  const HRESULT result =
      page.empty()
          ? webView_->Navigate(PageFileUrl(platform::ProgramPath(), platform::IsFile).c_str())
          : webView_->NavigateToString(page.c_str());
  if (FAILED(result)) events_.log(kPageFailed);
}

// What the window was told while there was no control yet.
void Control::AdoptWindowState() {
  if (::IsIconic(window_) != FALSE) controller_->put_IsVisible(FALSE);
  if (::GetFocus() == window_) controller_->MoveFocus(MoveFocusReason::Programmatic);
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
  if (controller_ && ::GetClientRect(window_, &area) != FALSE) controller_->put_Bounds(area);
}

void Control::ReportEnvironmentFailure() {
  if (std::exchange(failed_, true)) return;
  events_.log(kEnvironmentFailed);
  events_.environmentFailed(kEnvironmentFailed);
}

void Control::ReportControllerFailure() {
  if (std::exchange(failed_, true)) return;
  events_.log(kControllerFailed);
}

// In the runtime's own order: handlers, controller, references, environment.
void Control::Close() {
  if (std::exchange(closed_, true)) return;
  if (webView_) webView_->remove_WebMessageReceived(messageToken_);
  if (controller_) controller_->Close();
  webView_.Reset();
  controller_.Reset();
  environment_.Reset();
}

class WebView2Host final : public WebHost {
 public:
  WebView2Host(HWND window, WebHostEvents events, ReadPage readPage)
      : control_(std::make_shared<Control>(window, std::move(events), std::move(readPage))) {}
  ~WebView2Host() override { control_->Close(); }

  Control& GetControl() { return *control_; }

  bool IsUp() const override { return control_->WebView() != nullptr; }
  void PostJson(const std::wstring& json) override {
    if (IsUp()) control_->WebView()->PostWebMessageAsJson(json.c_str());
  }
  void FitToWindow() override { control_->FitToWindow(); }
  void SetVisible(bool visible) override {
    if (Controller() != nullptr) Controller()->put_IsVisible(visible ? TRUE : FALSE);
  }
  void WindowMoved() override {
    if (Controller() != nullptr) Controller()->NotifyParentWindowPositionChanged();
  }
  void Focus() override {
    if (Controller() != nullptr) Controller()->MoveFocus(MoveFocusReason::Programmatic);
  }
  void Close() override { control_->Close(); }

 private:
  ICoreWebView2Controller* Controller() const { return control_->Controller(); }

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
