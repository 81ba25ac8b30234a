#pragma once

#include <chrono>
#include <functional>
#include <string>

// One client a computer: two would fight for the driver, the settings and the same networks.
namespace shell {

// Who runs the client, as far as a start can tell.
struct RunningClient {
  bool isMine = false;           // nobody else: this process has the mark now
  bool isInThisSession = false;  // else: of the same desktop
  std::wstring user;             // else: who sits before the other desktop; empty when unknown
};

// What a start looks at and acts through: the system, or fakes in tests.
struct InstanceDeps {
  // Takes the mark that one process of the computer can have, until its end.
  std::function<RunningClient()> claim;
  // Brings the other client's window to the front; false while it shows none.
  std::function<bool()> bringToFront;
  std::function<void(std::chrono::milliseconds time)> pause;
  std::function<void(const std::wstring& text)> showMessage;
};

// Whether this start is to become the client. If not, the engineer sees why: the window of the one
// that runs is in front, or a message says who has it. A client that is just ending or starting is
// waited for, up to ten seconds. Where the system does not tell, the start goes on.
bool MayBecomeClient(const InstanceDeps& deps);

// Whether a client runs on this computer, this process among them. Takes nothing. Windows only; any
// thread.
bool IsClientRunning();

// The system's; `windowTitle` heads the messages. Windows only.
InstanceDeps RealInstanceDeps(const wchar_t* windowClass, const wchar_t* windowTitle);

}  // namespace shell
