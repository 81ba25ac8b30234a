#include "platform/clipboard.h"
#include "remote/launch_program.h"
#include "remote/password_paste.h"
#include "remote/remote_desktop.h"
#include "remote/rustdesk_config.h"
#include "remote/rustdesk_places.h"
#include "remote/rustdesk_program.h"

namespace remote {
namespace {

RustDeskPorts RealRustDesk() {
  RustDeskPorts rustDesk;
  rustDesk.find = [](settings::Settings& settings, const RustDeskServer* server) {
    return FindRustDesk(settings, server, RealRustDeskFolders(), RealRustDeskProgramPorts());
  };
  rustDesk.configure = [](const RustDeskServer& server) {
    ConfigureRustDesk(server, RealRustDeskFolders(), RealRustDeskConfigPorts());
  };
  rustDesk.launch = LaunchProgram;
  return rustDesk;
}

}  // namespace

RemoteDesktopPorts RealRemoteDesktopPorts() {
  RemoteDesktopPorts ports;
  ports.sendJsonRequest = service::SendJsonRequest;
  ports.rustDesk = RealRustDesk();
  ports.copyToClipboard = [](const std::wstring& text) {
    return platform::CopyTextToClipboard(text);
  };
  ports.startPasswordPaste = [](const std::wstring& password, const std::wstring& rustDeskId) {
    StartPasswordPaste(password, rustDeskId, RealPasteDesk());
  };
  return ports;
}

}  // namespace remote
