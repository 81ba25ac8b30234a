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

std::shared_ptr<PasswordKeeper> MakePasswordKeeper() {
  PasswordKeeperDeps deps;
  deps.copyToClipboard = [](const std::wstring& text) {
    return platform::CopySecretToClipboard(text);
  };
  deps.takeOffClipboard = platform::TakeSecretOffClipboard;
  return std::make_shared<PasswordKeeper>(std::move(deps));
}

RemoteDesktopPorts RealRemoteDesktopPorts(const std::shared_ptr<PasswordKeeper>& keeper,
                                          const std::stop_token& closing, PasteNotice notice) {
  const PasteTurn turn{keeper, keeper->Begin(), closing};
  RemoteDesktopPorts ports;
  ports.closing = closing;
  ports.sendJsonRequest = service::RealJsonRequester(closing);
  ports.rustDesk = RealRustDesk(closing);
  ports.copyToClipboard = [turn](const std::wstring& text) {
    return turn.keeper->CopyPassword(turn.session, text);
  };
  ports.startPasswordPaste = [turn, notice = std::move(notice)](const std::wstring& password,
                                                                const std::wstring& rustDeskId,
                                                                const std::wstring& startedPath) {
    StartPasswordPaste(password, rustDeskId, RealPasteDesk(turn, startedPath, notice));
  };
  return ports;
}

}  // namespace remote
