#include "remote/remote_desktop.h"

#include <exception>
#include <vector>

#include "remote/rustdesk_program.h"
#include "service/api_messages.h"
#include "settings/settings.h"

namespace remote {
namespace {

constexpr wchar_t kFailedPrefix[] = L"远程桌面失败：";
constexpr wchar_t kNoProgram[] = L"未找到 RustDesk 程序。";

service::ApiEnvelope RequestSession(const settings::Settings& settings, RemoteDesktopDeps& deps) {
  const service::HttpResponse reply =
      deps.SendJsonRequest(L"POST", DesktopSessionUrl(settings), DesktopSessionBody(settings));
  return service::ParseApiEnvelope(reply.body);
}

PasswordCopy CopyPassword(const std::wstring& password, RemoteDesktopDeps& deps) {
  if (password.empty()) return PasswordCopy::None;
  return deps.CopyPassword(password) ? PasswordCopy::Done : PasswordCopy::Failed;
}

void Launch(const std::wstring& exePath, const std::wstring& rustDeskId, RemoteDesktopDeps& deps) {
  std::vector<std::wstring> arguments;
  if (!rustDeskId.empty()) arguments = {L"--connect", rustDeskId};
  deps.Launch(exePath, arguments);
}

std::wstring OpenDesktop(const DesktopSession& session, settings::Settings& settings,
                         RemoteDesktopDeps& deps) {
  const RustDeskServer* const server = session.server ? &*session.server : nullptr;
  const std::wstring exePath = FindRustDesk(settings, server, deps);
  // A download may have taken minutes, in which the engineer has closed the program.
  if (deps.closing.stop_requested()) return {};
  if (exePath.empty()) return kNoProgram;
  if (server != nullptr) ConfigureRustDesk(*server, deps);
  if (deps.closing.stop_requested()) return {};
  // Before the start, because RustDesk may ask for the password at once.
  const PasswordCopy copy = CopyPassword(session.accessPassword, deps);
  Launch(exePath, session.rustDeskId, deps);
  // Pasting uses the clipboard: without a copy it would type what the engineer had there before.
  if (copy == PasswordCopy::Done) {
    deps.StartPasswordPaste(session.accessPassword, session.rustDeskId, exePath);
  }
  // Saved whether or not RustDesk's window appears.
  settings.rustDeskPath = exePath;
  return DesktopOpenedText(session.rustDeskId, copy);
}

}  // namespace

std::wstring StartRemoteDesktop(settings::Settings& settings, RemoteDesktopDeps& deps) {
  if (settings.engineerId.empty()) settings.engineerId = settings::MakeEngineerId();
  service::ApiEnvelope envelope;
  try {
    envelope = RequestSession(settings, deps);
  } catch (const std::exception&) {
    deps.OnRequestFailed();
    return kFailedPrefix + service::FailureMessage(std::current_exception());
  }
  if (!envelope.success) return kFailedPrefix + envelope.message;
  return OpenDesktop(ReadDesktopSession(envelope.data), settings, deps);
}

}  // namespace remote
