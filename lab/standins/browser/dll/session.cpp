#include "session.h"

#include <exception>
#include <utility>

#include "options.h"
#include "text.h"

namespace browser {
namespace {

PostedMessage ReadPosted(std::string_view body) {
  BodyReader reader(body);
  PostedMessage message;
  message.isText = reader.U8() == 1;
  message.source = FromUtf8(reader.Bytes(reader.U32()));
  message.json = FromUtf8(reader.Bytes(reader.U32()));
  message.text = FromUtf8(reader.Rest());
  return message;
}

FinishedNavigation ReadNavigated(std::string_view body) {
  BodyReader reader(body);
  FinishedNavigation navigation;
  navigation.id = reader.U64();
  navigation.success = reader.U8() == 1;
  navigation.status = static_cast<COREWEBVIEW2_WEB_ERROR_STATUS>(reader.U32());
  return navigation;
}

}  // namespace

Session::Session(std::shared_ptr<Dispatcher> dispatcher)
    : dispatcher_(std::move(dispatcher)),
      decoder_([this](uint32_t number) { Send(FromHost::FrameDone, BodyWriter().U32(number)); },
               [this] { ::InvalidateRect(window_.Handle(), nullptr, FALSE); }),
      window_(
          decoder_, [this](FromHost kind, const BodyWriter& body) { Send(kind, body); },
          [this] { OnWindowDestroyed(); }) {}

HRESULT Session::Open(HWND parent, Created created) {
  const HRESULT result = window_.Create(parent);
  if (FAILED(result)) return result;
  created_ = std::move(created);
  // The program may release everything before the browser is up; the handler must be called even
  // so.
  keepAlive_ = shared_from_this();
  const uint16_t port = BridgePort().value_or(0);
  RECT client{};
  ::GetClientRect(parent, &client);
  reader_ = std::thread([this, port, client] { Read(port, {client.right, client.bottom}); });
  return S_OK;
}

void Session::Close() {
  if (closed_.exchange(true)) return;
  // keepAlive_ may be the last reference: the object must survive until the end of this function.
  const std::shared_ptr<Session> keep = std::move(keepAlive_);
  events_ = nullptr;
  // Closing the link first wakes the reading thread, so that join() cannot hang.
  link_.Close();
  if (reader_.joinable()) reader_.join();
  decoder_.Stop();
  window_.Destroy();
}

HRESULT Session::Check() const {
  if (!dispatcher_->IsOwnThread()) return RPC_E_WRONG_THREAD;
  return closed_ || browserExited_ ? kInvalidState : S_OK;
}

void Session::Read(uint16_t port, SIZE size) noexcept {
  try {
    if (port != 0 && link_.Connect(port)) {
      link_.Send(FromHost::Create, BodyWriter().I32(size.cx).I32(size.cy));
      Frame frame{};
      while (link_.Receive(frame)) OnFrame(std::move(frame));
    }
    Post([](Session& self) { self.OnBrowserExited(); });
  } catch (const std::exception& error) {
    Log("reader ended: %s", error.what());
  }
}

void Session::OnFrame(Frame frame) {
  switch (frame.kind) {
    case ToHost::Ready:
      Post([](Session& self) { self.Finish(S_OK); });
      break;
    case ToHost::Failed:
      Log("browser failed: %s", frame.body.c_str());
      Post([](Session& self) { self.Finish(E_FAIL); });
      break;
    case ToHost::Message:
      Post([message = ReadPosted(frame.body)](Session& self) {
        if (self.events_ != nullptr) self.events_->OnPosted(message);
      });
      break;
    case ToHost::Navigated:
      Post([navigation = ReadNavigated(frame.body)](Session& self) {
        if (self.events_ != nullptr) self.events_->OnNavigated(navigation);
      });
      break;
    case ToHost::ProcessFailed:
      Post([kind = BodyReader(frame.body).U32()](Session& self) {
        if (self.events_ == nullptr) return;
        self.events_->OnProcessFailed(static_cast<COREWEBVIEW2_PROCESS_FAILED_KIND>(kind));
      });
      break;
    case ToHost::Frame: {
      BodyReader reader(frame.body);
      const uint32_t number = reader.U32();
      decoder_.Put(number, std::string(reader.Rest()));
      break;
    }
    case ToHost::Selection:
      Post([text = FromUtf8(frame.body)](Session& self) {
        SetClipboardText(self.window_.Handle(), text);
      });
      break;
  }
}

void Session::Post(std::function<void(Session&)> task) {
  dispatcher_->Post([self = shared_from_this(), task = std::move(task)] {
    // A task posted before Close() may run after it, when the program expects no more callbacks.
    if (!self->closed_) task(*self);
  });
}

void Session::Finish(HRESULT result) {
  // Moved out first: the handler is called once, and may close the session.
  const Created created = std::exchange(created_, nullptr);
  if (!created) return;
  const std::shared_ptr<Session> keep = shared_from_this();
  if (FAILED(result)) Close();
  created(result);
}

// A control that was already created reports the exit once and refuses every later call.
void Session::OnBrowserExited() {
  if (created_) return Finish(E_FAIL);
  browserExited_ = true;
  if (events_ != nullptr) events_->OnProcessFailed(kBrowserProcessExited);
}

void Session::OnWindowDestroyed() {
  const std::shared_ptr<Session> keep = shared_from_this();
  const Created created = std::exchange(created_, nullptr);
  Close();
  if (created) created(E_ABORT);
}

}  // namespace browser
