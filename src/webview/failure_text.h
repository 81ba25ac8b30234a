#pragma once

#include <cstdint>
#include <functional>
#include <string>

// Why the browser control could not be made, in words for the engineer. Pure; any thread.
namespace webview {

// The system's text for one of its error codes; empty when it has none.
using SystemText = std::function<std::wstring(std::uint32_t code)>;

// "错误 0x80070005：" and the cause, one line without a line break, for `result`, an HRESULT. The
// causes of the usual failures are our own, because the system's texts do not speak of browsers;
// `systemText` is asked for all others. A success stands for a runtime that has given no object.
std::wstring FailureCause(std::uint32_t result, const SystemText& systemText);

// False where no other folder for the browser's data can help: there is no usable runtime, or the
// window has gone.
bool MayBeTheFolder(std::uint32_t result) noexcept;

}  // namespace webview
