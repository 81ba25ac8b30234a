#include "dispatcher.h"

#include <exception>

#include "options.h"

namespace browser {
namespace {

constexpr wchar_t kDispatcherClass[] = L"LabWebViewDispatcher";
constexpr UINT kRunMessage = WM_USER + 1;

}  // namespace

Dispatcher::Dispatcher() {
  WNDCLASSW type{};
  type.lpfnWndProc = &Procedure;
  type.hInstance = OwnModule();
  type.lpszClassName = kDispatcherClass;
  ::RegisterClassW(&type);  // a second registration fails harmlessly
  window_ = ::CreateWindowW(kDispatcherClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                            OwnModule(), nullptr);
  ::SetWindowLongPtrW(window_, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
}

Dispatcher::~Dispatcher() {
  ::SetWindowLongPtrW(window_, GWLP_USERDATA, 0);
  ::DestroyWindow(window_);
}

void Dispatcher::Post(std::function<void()> task) {
  {
    const std::lock_guard guard(lock_);
    tasks_.push_back(std::move(task));
  }
  ::PostMessageW(window_, kRunMessage, 0, 0);
}

LRESULT CALLBACK Dispatcher::Procedure(HWND window, UINT message, WPARAM wide,
                                       LPARAM extra) noexcept {
  if (message != kRunMessage) return ::DefWindowProcW(window, message, wide, extra);
  auto* self = reinterpret_cast<Dispatcher*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
  try {
    if (self != nullptr) self->RunOne();
  } catch (const std::exception& error) {
    Log("task failed: %s", error.what());
  }
  return 0;
}

void Dispatcher::RunOne() {
  if (running_) return;  // in a handler's own message loop; runs after it
  std::function<void()> task;
  {
    const std::lock_guard guard(lock_);
    if (tasks_.empty()) return;
    task = std::move(tasks_.front());
    tasks_.pop_front();
  }
  const HWND window = window_;
  running_ = true;
  try {
    task();
  } catch (const std::exception& error) {
    Log("task failed: %s", error.what());
  }
  // The task may have released the last reference to this dispatcher.
  if (::GetWindowLongPtrW(window, GWLP_USERDATA) != reinterpret_cast<LONG_PTR>(this)) return;
  running_ = false;
  const std::lock_guard guard(lock_);
  // Messages that arrived in a loop inside the task were ignored: one message makes up for them.
  if (!tasks_.empty()) ::PostMessageW(window_, kRunMessage, 0, 0);
}

}  // namespace browser
