#include "platform/modules_win.h"
#include "text/utf8.h"
#include "webview/page_source.h"

namespace webview {
namespace {

constexpr WORD kPageResource = 210;

}  // namespace

std::wstring PageFromResources() {
  const std::span<const std::byte> bytes = platform::FindResourceBytes(nullptr, kPageResource);
  return text::FromUtf8({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

}  // namespace webview
