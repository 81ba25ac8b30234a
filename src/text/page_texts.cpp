#include "text/page_texts.h"

// webui/join.cmake reads these lines: one text each, without escapes.
namespace text {

const wchar_t kConnectBusy[] = L"正在请求连接授权...";
const wchar_t kRetryBusy[] = L"正在自动重试连接授权...";
const wchar_t kStopBusy[] = L"正在停止软件隧道...";
const wchar_t kLatencyBusy[] = L"正在测试通讯延迟...";
const wchar_t kDesktopBusy[] = L"正在请求远程桌面...";
const wchar_t kResolveBusy[] = L"正在获取现场端网段...";

const wchar_t kReconnecting[] = L"软件隧道正在自动重连";
const wchar_t kRetryArmed[] = L"授权未恢复，将每 5 秒自动重试连接。";
const wchar_t kUnknownError[] = L"Unknown error.";

const wchar_t kRefusedPrefix[] = L"Connection authorization failed: ";
const wchar_t kNotResolvedPrefix[] = L"Resolve failed: ";
const wchar_t kGrantedPrefix[] = L"连接授权成功：";

}  // namespace text
