#include "shell/single_instance.h"

namespace shell {
namespace {

constexpr std::chrono::milliseconds kLookEvery{100};
constexpr int kLooks = 100;

constexpr wchar_t kHeldBy[] = L"本程序正由用户“";
constexpr wchar_t kHeldByEnd[] =
    L"”在这台电脑的另一个会话中使用，同一时间只能运行一个。请让该用户退出程序后再启动。";
constexpr wchar_t kHeldBySomebody[] =
    L"本程序正由另一个用户在这台电脑上使用，同一时间只能运行一个。请让该用户退出程序后再启动。";
constexpr wchar_t kStillEnding[] = L"上一次运行的程序仍在退出，请稍后再启动。";

}  // namespace

bool MayBecomeClient(const InstanceDeps& deps) {
  for (int look = 0; look < kLooks; ++look) {
    const RunningClient running = deps.claim();
    if (running.isMine) return true;
    if (!running.isInThisSession) {
      deps.showMessage(running.user.empty() ? std::wstring(kHeldBySomebody)
                                            : kHeldBy + running.user + kHeldByEnd);
      return false;
    }
    if (deps.bringToFront()) return false;
    deps.pause(kLookEvery);
  }
  deps.showMessage(kStillEnding);
  return false;
}

}  // namespace shell
