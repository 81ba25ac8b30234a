#include "remote/remote_desktop.h"

#include <exception>
#include <vector>

#include "remote/desktop_session.h"
#include "service/api_envelope.h"
#include "settings/settings.h"
#include "text/utf8.h"

namespace remote {
namespace {

constexpr wchar_t kFailedPrefix[] = L"远程桌面失败：";
constexpr wchar_t kNoProgram[] = L"未找到 RustDesk 程序。";

service::ApiEnvelope RequestSession(const settings::Settings& settings,
                                    const RemoteDesktopPorts& ports) {
  const service::HttpResponse reply =
      ports.sendJsonRequest(L"POST", DesktopSessionUrl(settings), DesktopSessionBody(settings));
  return service::ParseApiEnvelope(reply.body);
}

PasswordCopy CopyPassword(const std::wstring& password, const RemoteDesktopPorts& ports) {
  if (password.empty()) return PasswordCopy::None;
  return ports.copyToClipboard(password) ? PasswordCopy::Done : PasswordCopy::Failed;
}

void Launch(const std::wstring& exePath, const std::wstring& rustDeskId,
            const RustDeskPorts& rustDesk) {
  std::vector<std::wstring> arguments;
  if (!rustDeskId.empty()) arguments = {L"--connect", rustDeskId};
  rustDesk.launch(exePath, arguments);
}

std::wstring OpenDesktop(const DesktopSession& session, settings::Settings& settings,
                         const RemoteDesktopPorts& ports) {
  const RustDeskServer* const server = session.server ? &*session.server : nullptr;
  const std::wstring exePath = ports.rustDesk.find(settings, server);
  if (ports.closing.stop_requested()) return {};  // finding it may have taken minutes
  if (exePath.empty()) return kNoProgram;
  if (server != nullptr) ports.rustDesk.configure(*server);
  if (ports.closing.stop_requested()) return {};
  const PasswordCopy copy = CopyPassword(session.accessPassword, ports);
  Launch(exePath, session.rustDeskId, ports.rustDesk);
  if (copy == PasswordCopy::Done) {
    ports.startPasswordPaste(session.accessPassword, session.rustDeskId, exePath);
  }
  settings.rustDeskPath = exePath;
  return DesktopOpenedText(session.rustDeskId, copy);
}

}  // namespace

std::wstring StartRemoteDesktop(settings::Settings& settings, const RemoteDesktopPorts& ports) {
  if (settings.engineerId.empty()) settings.engineerId = settings::MakeEngineerId();
  service::ApiEnvelope envelope;
  try {
    envelope = RequestSession(settings, ports);
  } catch (const std::exception& error) {
    ports.requestFailed();
    return kFailedPrefix + text::FromUtf8(error.what());
  }
  if (!envelope.success) return kFailedPrefix + envelope.message;
  return OpenDesktop(ReadDesktopSession(envelope.data), settings, ports);
}

}  // namespace remote
