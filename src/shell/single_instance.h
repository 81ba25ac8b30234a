#pragma once

#include <chrono>
#include <string>

// One client per computer: two would compete for the driver, the settings and the same networks.
namespace shell {

// The running client, as far as a start can find out.
struct RunningClient {
  bool isMine = false;           // this process has become the client
  bool isInThisSession = false;  // otherwise: on the same desktop
  std::wstring user;             // otherwise: the user of the other desktop; empty when unknown
};

// The system as a start needs it.
class InstanceSystem {
 public:
  // `windowTitle` heads the messages.
  InstanceSystem(const wchar_t* windowClass, const wchar_t* windowTitle)
      : windowClass_(windowClass), windowTitle_(windowTitle) {}

  // Takes the mark that only one process of the computer can hold, until this process ends.
  RunningClient Claim();
  // Brings the other client's window to the front; false while it shows none.
  bool BringToFront();
  void Pause(std::chrono::milliseconds time);
  void ShowMessage(const std::wstring& text);

 private:
  const wchar_t* const windowClass_;
  const wchar_t* const windowTitle_;
};

inline constexpr std::chrono::milliseconds kClaimEvery{100};
inline constexpr int kClaims = 100;

inline constexpr wchar_t kHeldBySomebody[] =
    L"本程序正由另一个用户在这台电脑上使用，同一时间只能运行一个。请让该用户退出程序后再启动。";
inline constexpr wchar_t kStillEnding[] = L"上一次运行的程序仍在退出，请稍后再启动。";

inline std::wstring HeldByText(const std::wstring& user) {
  if (user.empty()) return kHeldBySomebody;
  return L"本程序正由用户“" + user +
         L"”在这台电脑的另一个会话中使用，同一时间只能运行一个。请让该用户退出程序后再启动。";
}

// True when this start becomes the client. Otherwise the engineer has seen the reason: the running
// client's window is in front, or a message names its user. Waits up to ten seconds for a client
// that is starting or ending. An unknown state counts as free. `System` is InstanceSystem, or a
// fake in tests.
template <typename System>
bool MayBecomeClient(System& system) {
  for (int claim = 0; claim < kClaims; ++claim) {
    const RunningClient running = system.Claim();
    if (running.isMine) return true;
    if (!running.isInThisSession) {
      system.ShowMessage(HeldByText(running.user));
      return false;
    }
    if (system.BringToFront()) return false;
    system.Pause(kClaimEvery);
  }
  system.ShowMessage(kStillEnding);
  return false;
}

// True when a client runs on this computer, possibly this process. Any thread.
bool IsClientRunning();

}  // namespace shell
