#pragma once

#include "link.h"  // includes the SDK, which must come first

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "dispatcher.h"
#include "frame_decoder.h"
#include "view_window.h"

namespace browser {

// A message from the page. `text` is its value if `isText`; `json` is always set.
struct PostedMessage {
  bool isText = false;
  std::wstring source;
  std::wstring json;
  std::wstring text;
};

struct FinishedNavigation {
  uint64_t id = 0;
  bool success = false;
  COREWEBVIEW2_WEB_ERROR_STATUS status = 0;
};

// Receives the page's events on the owner's thread, from its message pump.
class SessionEvents {
 public:
  virtual void OnPosted(const PostedMessage& message) = 0;
  virtual void OnNavigated(const FinishedNavigation& navigation) = 0;
  virtual void OnProcessFailed(COREWEBVIEW2_PROCESS_FAILED_KIND kind) = 0;

 protected:
  ~SessionEvents() = default;
};

// One controller's browser: the child window, the link to the bridge, and the threads that read and
// decode. The COM objects of a controller share it.
//
// Threads: everything on the owner's thread except Send() and Check(). The reading thread only
//          posts.
// Owns:    itself, from Open() until Close() or the destruction of the parent window.
class Session : public std::enable_shared_from_this<Session> {
 public:
  // Called once, on the owner's thread: S_OK, E_FAIL if the browser cannot be started, E_ABORT if
  // the parent window is destroyed first (then from inside its destruction).
  using Created = std::function<void(HRESULT)>;

  explicit Session(std::shared_ptr<Dispatcher> dispatcher);
  ~Session() { Close(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Creates the child window at once and starts the browser. On failure `created` is never called.
  HRESULT Open(HWND parent, Created created);
  // Ends browser, threads and window; safe to call again.
  void Close();

  // S_OK, or an error for the wrong thread, a closed session or an exited browser.
  [[nodiscard]] HRESULT Check() const;
  bool Send(FromHost kind, const BodyWriter& body) { return link_.Send(kind, body); }
  ViewWindow& Window() { return window_; }
  Dispatcher& Tasks() { return *dispatcher_; }
  // Null removes the receiver.
  void SetEvents(SessionEvents* events) { events_ = events; }

 private:
  void Read(uint16_t port, SIZE size) noexcept;
  void OnFrame(Frame frame);
  void Finish(HRESULT result);
  void Post(std::function<void(Session&)> task);
  void OnWindowDestroyed();
  // The link was closed from the other end, so the browser has exited.
  void OnBrowserExited();

  const std::shared_ptr<Dispatcher> dispatcher_;
  Link link_;
  std::atomic<bool> closed_{false};
  bool browserExited_ = false;  // own thread only
  Created created_;
  SessionEvents* events_ = nullptr;
  std::shared_ptr<Session> keepAlive_;
  FrameDecoder decoder_;
  ViewWindow window_;
  std::thread reader_;
};

}  // namespace browser
