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

void Type(PasteDeps& deps) {
  if (!deps.PressKey(kKeyControl)) return;
  const bool isPasted = deps.PressKey(kKeyV);
  if (isPasted) deps.ReleaseKey(kKeyV);
  deps.ReleaseKey(kKeyControl);  // always: a held Ctrl would change everything the engineer types
  if (!isPasted || !deps.Sleep(kAfterPaste)) return;
  if (deps.PressKey(kKeyReturn)) deps.ReleaseKey(kKeyReturn);
}

}  // namespace

void PastePassword(const std::wstring& password, const std::wstring& rustDeskId, PasteDeps& deps) {
  bool wasThere = false;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    // Before the first look as well: RustDesk has only just been started.
    if (!deps.Sleep(kBetweenLooks)) return;
    void* const window = deps.FindWindowFor(rustDeskId);
    if (window == nullptr) continue;
    // Only when the window appears: until it is in front, the clipboard is left to the engineer.
    if (!wasThere) deps.CopyToClipboard(password);
    if (!deps.BringToFront(window)) return;
    if (!deps.Sleep(kAfterFront)) return;
    // Windows may have refused the foreground; the keys would then reach another program.
    if (deps.IsInFront(window)) {
      // The engineer may have copied something else since.
      if (wasThere) deps.CopyToClipboard(password);
      return Type(deps);
    }
    wasThere = true;
  }
  if (wasThere) deps.Notice(kNeverInFront);
}

void StartPasswordPaste(const std::wstring& password, const std::wstring& rustDeskId,
                        std::shared_ptr<PasteDeps> deps) {
  platform::StartDetached([password, rustDeskId, owned = std::move(deps)]() {
    try {
      PastePassword(password, rustDeskId, *owned);
    } catch (...) {
      return;  // the password is on the clipboard; the engineer can paste it
    }
  });
}

}  // namespace remote
