#pragma once

#include <span>
#include <string>
#include <string_view>

// Which window on the desk is RustDesk's. Pure; any thread.
namespace remote {

// Whether a window of this title is taken for the one in which RustDesk asks for the password: the
// ID stands in it (letter case counts), or else "rustdesk" does, in any letter case.
bool IsRustDeskTitle(std::wstring_view title, std::wstring_view rustDeskId);

// Whether a process with this image is RustDesk: a file of its name, or the very one that was
// started. False for an empty path.
bool IsRustDeskImage(std::wstring_view imagePath, std::wstring_view startedPath);

// A visible window that no other owns.
struct DeskWindow {
  void* handle = nullptr;
  std::wstring title;
  std::wstring imagePath;  // of its process; empty where that cannot be asked
};

// The window for the password among `windows`, which come in the system's order: of those with such
// a title the first that belongs to RustDesk, or else the first. A browser's tab or a folder with
// that title is taken only while no window of RustDesk's has one. Null for none.
void* ChooseRustDeskWindow(std::span<const DeskWindow> windows, std::wstring_view rustDeskId,
                           std::wstring_view startedPath);

}  // namespace remote
