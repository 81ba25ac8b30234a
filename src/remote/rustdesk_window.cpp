#include "remote/rustdesk_window.h"

#include "text/strings.h"

namespace remote {
namespace {

constexpr std::wstring_view kProgramInTitle = L"rustdesk";
constexpr std::wstring_view kProgramFile = L"rustdesk.exe";

std::wstring_view FileName(std::wstring_view path) {
  const std::size_t slash = path.find_last_of(L"\\/");
  return slash == std::wstring_view::npos ? path : path.substr(slash + 1);
}

}  // namespace

bool IsRustDeskTitle(std::wstring_view title, std::wstring_view rustDeskId) {
  if (!rustDeskId.empty() && title.find(rustDeskId) != std::wstring_view::npos) return true;
  return text::FoldCase(title).find(kProgramInTitle) != std::wstring::npos;
}

bool IsRustDeskImage(std::wstring_view imagePath, std::wstring_view startedPath) {
  if (imagePath.empty()) return false;
  return text::EqualsIgnoreCase(FileName(imagePath), kProgramFile) ||
         text::EqualsIgnoreCase(imagePath, startedPath);
}

void* ChooseRustDeskWindow(std::span<const DeskWindow> windows, std::wstring_view rustDeskId,
                           std::wstring_view startedPath) {
  void* first = nullptr;
  for (const DeskWindow& window : windows) {
    if (!IsRustDeskTitle(window.title, rustDeskId)) continue;
    if (IsRustDeskImage(window.imagePath, startedPath)) return window.handle;
    if (first == nullptr) first = window.handle;
  }
  return first;
}

}  // namespace remote
