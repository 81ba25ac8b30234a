#include "platform/windows_sdk.h"
#include "text/utf8.h"
#include "webui/page_source.h"

namespace webui {
namespace {

constexpr WORD kPageResource = 210;

}  // namespace

std::wstring PageFromResources() {
  // A resource is part of the mapped program: neither the handle nor the bytes are freed.
  const HRSRC resource = ::FindResourceW(nullptr, MAKEINTRESOURCEW(kPageResource), RT_RCDATA);
  if (resource == nullptr) return {};
  const DWORD sizeBytes = ::SizeofResource(nullptr, resource);
  const HGLOBAL loaded = ::LoadResource(nullptr, resource);
  const void* bytes = loaded == nullptr ? nullptr : ::LockResource(loaded);
  if (bytes == nullptr) return {};
  return text::FromUtf8({static_cast<const char*>(bytes), sizeBytes});
}

}  // namespace webui
