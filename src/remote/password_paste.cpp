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

constexpr wchar_t kNeverInFront[] =
    L"提示：RustDesk 窗口未能切换到前台，访问密码未自动输入，请在 RustDesk 窗口中手动粘贴。";

void Type(const PasteDesk& desk) {
  if (!desk.pressKey(kKeyControl)) return;
  const bool isPasted = desk.pressKey(kKeyV);
  if (isPasted) desk.releaseKey(kKeyV);
  desk.releaseKey(kKeyControl);  // also then: it would change all that the engineer types
  if (!isPasted || !desk.sleep(kAfterPaste)) return;
  if (desk.pressKey(kKeyReturn)) desk.releaseKey(kKeyReturn);
}

}  // namespace

void PastePassword(const std::wstring& password, const std::wstring& rustDeskId,
                   const PasteDesk& desk) {
  bool wasThere = false;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (!desk.sleep(kBetweenLooks)) return;
    void* const window = desk.findWindow(rustDeskId);
    if (window == nullptr) continue;
    if (!wasThere) desk.copyToClipboard(password);
    if (!desk.bringToFront(window)) return;
    if (!desk.sleep(kAfterFront)) return;
    if (desk.isInFront(window)) {
      // The engineer may have copied something else while the window was waited for.
      if (wasThere) desk.copyToClipboard(password);
      return Type(desk);
    }
    wasThere = true;
  }
  if (wasThere) desk.notice(kNeverInFront);
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
