#include "remote/password_paste.h"

#include <utility>

#include "platform/detached_thread.h"

namespace remote {
namespace {

using std::chrono::milliseconds;

constexpr int kAttempts = 10;
constexpr milliseconds kBetweenLooks{900};
constexpr milliseconds kAfterFront{180};
constexpr milliseconds kAfterPaste{120};

void* AwaitWindow(const std::wstring& rustDeskId, const PasteDesk& desk) {
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    desk.sleep(kBetweenLooks);
    if (void* const window = desk.findWindow(rustDeskId)) return window;
  }
  return nullptr;
}

}  // namespace

void PastePassword(const std::wstring& password, const std::wstring& rustDeskId,
                   const PasteDesk& desk) {
  void* const window = AwaitWindow(rustDeskId, desk);
  if (window == nullptr) return;
  desk.copyToClipboard(password);
  desk.bringToFront(window);
  desk.sleep(kAfterFront);
  desk.sendKey(kKeyControl, true);
  desk.sendKey(kKeyV, true);
  desk.sendKey(kKeyV, false);
  desk.sendKey(kKeyControl, false);
  desk.sleep(kAfterPaste);
  desk.sendKey(kKeyReturn, true);
  desk.sendKey(kKeyReturn, false);
}

void StartPasswordPaste(const std::wstring& password, const std::wstring& rustDeskId,
                        PasteDesk desk) {
  platform::StartDetached([password, rustDeskId, owned = std::move(desk)]() {
    try {
      PastePassword(password, rustDeskId, owned);
    } catch (...) {
      return;  // the password is on the clipboard; the engineer can paste it
    }
  });
}

}  // namespace remote
