// A small window that shows one page through the browser runtime, for trying the stand-in without
// the program. Usage: lab_webview_host.exe RUNTIME_FOLDER PAGE_FILE
// Prints the length of every string that the page posts and answers with {"echo": true}.
#include <windows.h>

#include <objbase.h>

#include <cstdio>
#include <string>

#include "dll/abi.h"
#include "dll/com.h"
#include "platform/modules_win.h"

namespace browser {
namespace {

constexpr IID kAnyIid{};

ComPtr<ICoreWebView2Controller> controller;
ComPtr<ICoreWebView2> webview;
std::wstring page;
HWND mainWindow;

// A handler that calls a plain function.
template <typename First, typename Second>
class Call final : public ComObject<Handler<First, Second>, &kAnyIid> {
 public:
  using Function = void (*)(First, Second);
  explicit Call(Function function) : function_(function) {}
  HRESULT STDMETHODCALLTYPE Invoke(First first, Second second) override {
    function_(first, second);
    return S_OK;
  }

 private:
  ~Call() = default;
  void Destroy() override { delete this; }
  const Function function_;
};

std::wstring ReadPage(const wchar_t* path) {
  std::FILE* file = ::_wfopen(path, L"rb");
  if (file == nullptr) return {};
  std::string bytes;
  for (int byte = std::fgetc(file); byte != EOF; byte = std::fgetc(file)) {
    bytes.push_back(static_cast<char>(byte));
  }
  std::fclose(file);
  std::wstring text(bytes.size(), L'\0');
  const int size = ::MultiByteToWideChar(CP_UTF8, 0, bytes.data(), static_cast<int>(bytes.size()),
                                         text.data(), static_cast<int>(text.size()));
  text.resize(static_cast<size_t>(size));
  return text;
}

void OnMessage(ICoreWebView2* sender, ICoreWebView2WebMessageReceivedEventArgs* arguments) {
  LPWSTR text = nullptr;
  if (FAILED(arguments->TryGetWebMessageAsString(&text))) return;
  std::printf("message of %zu units\n", std::wstring_view(text).size());
  std::fflush(stdout);
  ::CoTaskMemFree(text);
  sender->PostWebMessageAsJson(L"{\"echo\":true}");
}

void OnController(HRESULT result, ICoreWebView2Controller* created) {
  std::printf("controller %08lx\n", static_cast<unsigned long>(result));
  std::fflush(stdout);
  if (created == nullptr) return;
  controller = ComPtr<ICoreWebView2Controller>(created);
  ICoreWebView2* view = nullptr;
  created->get_CoreWebView2(&view);
  webview = ComPtr<ICoreWebView2>::Adopt(view);
  RECT client{};
  ::GetClientRect(mainWindow, &client);
  created->put_Bounds(client);
  EventRegistrationToken token{};
  const auto handler = ComPtr<WebMessageReceivedHandler>::Adopt(
      new Call<ICoreWebView2*, ICoreWebView2WebMessageReceivedEventArgs*>(&OnMessage));
  webview->add_WebMessageReceived(handler.Get(), &token);
  webview->NavigateToString(page.c_str());
}

void OnEnvironment(HRESULT result, ICoreWebView2Environment* environment) {
  std::printf("environment %08lx\n", static_cast<unsigned long>(result));
  if (environment == nullptr) return;
  const auto handler = ComPtr<ControllerCompletedHandler>::Adopt(
      new Call<HRESULT, ICoreWebView2Controller*>(&OnController));
  environment->CreateCoreWebView2Controller(mainWindow, handler.Get());
}

LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wide, LPARAM extra) noexcept {
  if (message == WM_SIZE && controller) {
    controller->put_Bounds(RECT{0, 0, LOWORD(extra), HIWORD(extra)});
  } else if (message == WM_DESTROY) {
    if (controller) controller->Close();
    webview = {};
    controller = {};
    ::PostQuitMessage(0);
  }
  return ::DefWindowProcW(window, message, wide, extra);
}

bool Start(const wchar_t* runtimeFolder) {
  using Create =
      HRESULT(STDAPICALLTYPE*)(bool, int, PCWSTR, IUnknown*, EnvironmentCompletedHandler*);
  const std::wstring path =
      std::wstring(runtimeFolder) + L"\\EBWebView\\x64\\EmbeddedBrowserWebView.dll";
  const HMODULE runtime = ::LoadLibraryW(path.c_str());
  if (runtime == nullptr) return false;
  const auto create =
      platform::GetProcAddressAs<Create>(runtime, "CreateWebViewEnvironmentWithOptionsInternal");
  wchar_t folder[MAX_PATH];
  ::GetTempPathW(MAX_PATH, folder);
  const auto handler = ComPtr<EnvironmentCompletedHandler>::Adopt(
      new Call<HRESULT, ICoreWebView2Environment*>(&OnEnvironment));
  const std::wstring data = std::wstring(folder) + L"lab_webview_host";
  return create != nullptr && SUCCEEDED(create(true, 0, data.c_str(), nullptr, handler.Get()));
}

}  // namespace
}  // namespace browser

int wmain(int count, wchar_t** arguments) {
  if (count != 3) return 2;
  ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  browser::page = browser::ReadPage(arguments[2]);
  WNDCLASSW type{};
  type.lpfnWndProc = &browser::Procedure;
  type.hInstance = ::GetModuleHandleW(nullptr);
  type.lpszClassName = L"LabWebViewHost";
  ::RegisterClassW(&type);
  browser::mainWindow =
      ::CreateWindowW(L"LabWebViewHost", L"lab host", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 40, 40, 800,
                      600, nullptr, nullptr, type.hInstance, nullptr);
  if (!browser::Start(arguments[1])) return 1;
  MSG message;
  while (::GetMessageW(&message, nullptr, 0, 0) > 0) {
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
  }
  return 0;
}
