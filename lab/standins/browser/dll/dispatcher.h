#pragma once

#include <windows.h>

#include <deque>
#include <functional>
#include <mutex>

namespace browser {

// Runs tasks on its creating thread, from that thread's message pump, through a message-only
// window. Tasks never nest: a message loop inside a task runs no other task, just as the real
// control makes no callback inside a handler's message loop.
//
// Threads: created and destroyed on the owner's thread; Post() on any.
class Dispatcher {
 public:
  Dispatcher();
  ~Dispatcher();
  Dispatcher(const Dispatcher&) = delete;
  Dispatcher& operator=(const Dispatcher&) = delete;

  void Post(std::function<void()> task);
  [[nodiscard]] bool IsOwnThread() const { return ::GetCurrentThreadId() == thread_; }

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wide, LPARAM extra) noexcept;
  void RunOne();

  const DWORD thread_ = ::GetCurrentThreadId();
  HWND window_ = nullptr;
  bool running_ = false;  // own thread only
  std::mutex lock_;       // guards tasks_
  std::deque<std::function<void()>> tasks_;
};

}  // namespace browser
