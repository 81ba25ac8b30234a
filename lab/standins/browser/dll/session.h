#pragma once

#include "link.h"
// The SDK before everything else.
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "dispatcher.h"
#include "frame_decoder.h"
#include "view_window.h"

namespace browser {

// A message that the page posted. `text` is its value if `isText`; `json` holds it in any case.
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

// Receives what the page does, on the owner's thread, from its message pump.
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
// posts. Owns:    itself, from Open() until Close() or until the parent window is gone.
class Session : public std::enable_shared_from_this<Session> {
 public:
  // Told once, on the owner's thread: S_OK, E_FAIL when the browser cannot be started, E_ABORT when
  // the parent window goes away first (then from inside that window's destruction).
  using Created = std::function<void(HRESULT)>;

  explicit Session(std::shared_ptr<Dispatcher> dispatcher);
  ~Session() { Close(); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Makes the child window at once and starts the browser. On failure `created` is never called.
  HRESULT Open(HWND parent, Created created);
  // Ends browser, threads and window; safe to call again.
  void Close();

  // S_OK, or why a call is refused: the wrong thread, closed, or a browser that has exited.
  [[nodiscard]] HRESULT Check() const;
  bool Send(FromHost kind, const BodyWriter& body) { return link_.Send(kind, body); }
  ViewWindow& Window() { return window_; }
  Dispatcher& Tasks() { return *dispatcher_; }
  // Null for nobody.
  void SetEvents(SessionEvents* events) { events_ = events; }

 private:
  void Read(uint16_t port, SIZE size) noexcept;
  void OnFrame(Frame frame);
  void Finish(HRESULT result);
  void Post(std::function<void(Session&)> task);
  void OnWindowGone();
  // The link has ended by itself, and with it the browser.
  void OnBrowserGone();

  const std::shared_ptr<Dispatcher> dispatcher_;
  Link link_;
  std::atomic<bool> closed_{false};
  bool browserGone_ = false;  // own thread only
  Created created_;
  SessionEvents* events_ = nullptr;
  std::shared_ptr<Session> keepAlive_;
  FrameDecoder decoder_;
  ViewWindow window_;
  std::thread reader_;
};

}  // namespace browser
