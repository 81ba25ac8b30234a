#include <utility>

#include "platform/clipboard.h"
#include "remote/launch_program.h"
#include "remote/password_paste.h"
#include "remote/remote_desktop.h"
#include "remote/rustdesk_config.h"
#include "remote/rustdesk_places.h"
#include "remote/rustdesk_program.h"

namespace remote {
namespace {

RustDeskPorts RealRustDesk(const std::stop_token& closing) {
  RustDeskPorts rustDesk;
  rustDesk.find = [closing](settings::Settings& settings, const RustDeskServer* server) {
    return FindRustDesk(settings, server, RealRustDeskFolders(), RealRustDeskProgramPorts(closing));
  };
  rustDesk.configure = [](const RustDeskServer& server) {
    ConfigureRustDesk(server, RealRustDeskFolders(), RealRustDeskConfigPorts());
  };
  rustDesk.launch = LaunchProgram;
  return rustDesk;
}

}  // namespace

RemoteDesktopPorts RealRemoteDesktopPorts(const std::stop_token& closing, PasteNotice notice) {
  RemoteDesktopPorts ports;
  ports.closing = closing;
  ports.sendJsonRequest = service::RealJsonRequester(closing);
  ports.rustDesk = RealRustDesk(closing);
  ports.copyToClipboard = [](const std::wstring& text) {
    return platform::CopySecretToClipboard(text);
  };
  ports.startPasswordPaste = [closing, notice = std::move(notice)](
                                 const std::wstring& password, const std::wstring& rustDeskId,
                                 const std::wstring& startedPath) {
    StartPasswordPaste(password, rustDeskId, RealPasteDesk(closing, startedPath, notice));
  };
  return ports;
}

}  // namespace remote
