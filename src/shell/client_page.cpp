#include <chrono>
#include <optional>
#include <utility>

#include "shell/client.h"

namespace shell {
namespace {

constexpr std::wstring_view kReady = L"ready";
// Not an action: the fields that the engineer has changed so far, sent while typing.
constexpr std::wstring_view kTyped = L"typed";

constexpr wchar_t kReplaced[] = L"警告：一条消息含有页面无法接受的字符，已替换后重新发送。";

}  // namespace

void Client::HandlePageMessage(std::wstring_view json) {
  std::optional<page::PageMessage> message = page::ParsePageMessage(json);
  if (!message) return;
  // Any action, even an unknown one, shows that the page responds.
  pageFailures_.OnPageAlive();
  if (message->action == kTyped) {
    // Kept apart from the form: a retry must not send a key that is only half typed.
    if (message->form) page_.changedFields = *std::move(message->form);
    return;
  }
  // A page that replaces another one reports an empty form first.
  const bool isBlank = page_.lost && message->action == kReady;
  // Before the action: an unknown or dropped one updates the form too.
  if (message->form && !isBlank) page_.form = *std::move(message->form);
  if (message->action == kReady) return WelcomePage();
  Act(message->action);
}

// The second state message is required: it makes the page redraw its side panel. The log lines
// are posted last and through the queue, so that a line already in the queue is among them, not
// after them.
void Client::WelcomePage() {
  const bool replaces = std::exchange(page_.lost, false);
  page_.ready = true;
  DeliverQueue();
  // PostApplyMessage() replaces it by the settings. The form of the last action must outlive the
  // page that posted it.
  const settings::JsonValue form = page_.form;
  PostApplyMessage();
  PostStateMessage();
  PostStateMessage();
  if (!replaces) {
    page_.changedFields = {};
    return;
  }
  page_.form = form;
  deps_.PostToPage(page::BuildFormMessage(page_.changedFields));
  deps_.PostToPage(page::BuildLogsMessage(page_.loggedLines));
}

void Client::DeliverQueue() {
  // Emptied first: the control may dispatch messages meanwhile, and one of them may close it and
  // queue a text again.
  for (std::wstring& json : std::exchange(page_.queue, {})) DeliverToPage(std::move(json));
}

void Client::DeliverToPage(std::wstring json) {
  webview::WebHost* const page = deps_.Page();
  if (page_.ready && page != nullptr && page->IsUp()) {
    if (!page->PostJson(json)) DeliverRefused(json);
  } else if (!page_.lost) {
    // No queue for a lost page: it would grow all night, and the next page receives all contents.
    page_.queue.push_back(std::move(json));
  }
}

// Without this, a text of the service with a control character would be lost and the page would
// wait for it forever. The warning comes once a run, because it is sent to the page too.
void Client::DeliverRefused(const std::wstring& json) {
  const std::wstring clean = page::WithoutControlCharacters(json);
  // The first attempt may have run messages that closed the control.
  webview::WebHost* const page = deps_.Page();
  if (clean == json || page == nullptr) return;
  page->PostJson(clean);  // refused again, it is dropped
  if (!std::exchange(page_.refusalLogged, true)) Log(kReplaced);
}

void Client::LosePage() noexcept {
  if (std::exchange(page_.ready, false)) page_.lost = true;
}

void Client::OnBrowserFailed(webview::ProcessFailedKind kind) {
  const webview::PageFailureResponse response =
      pageFailures_.OnFailure(kind, std::chrono::steady_clock::now());
  // Before the log line, which must not be sent to the lost page.
  if (response.recovery != webview::PageRecovery::None) LosePage();
  if (!response.text.empty()) Log(response.text);
  webview::WebHost* const page = deps_.Page();
  if (page == nullptr) return;
  switch (response.recovery) {
    case webview::PageRecovery::None:
      return;
    case webview::PageRecovery::ShowPage:
      return page->ShowPage();
    case webview::PageRecovery::MakeAnew:
      return page->MakeAnew();
    case webview::PageRecovery::GiveUp:
      page->Close();
      deps_.PostFailure(webview::kPageGivenUp);
      return;
  }
}

void Client::PostStateMessage() {
  const page::TunnelStatus tunnel{tunnel_->IsRunning(), tunnel_->IsRelayConnected()};
  deps_.PostToPage(page::BuildStateMessage(settings_.Read(), tunnel, page_.lastMessage));
}

// Remembers the form it sends: a retry would otherwise restore the fields from before a profile was
// loaded.
void Client::PostApplyMessage() {
  const settings::Settings settings = settings_.Read();
  page_.form = page::FormOf(settings);
  deps_.PostToPage(page::BuildApplyMessage(settings));
}

}  // namespace shell
