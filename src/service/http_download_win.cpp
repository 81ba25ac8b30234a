#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "platform/windows_sdk.h"
#include "service/http_exchange_win.h"
#include "service/http_reply.h"
#include "service/http_transport.h"

namespace service {
namespace {

constexpr std::chrono::milliseconds kDownloadLimit{120000};

// The file that a download grows in. Unless it is moved onto its target, it is deleted with this
// object, whatever the reason.
class PartialFile {
 public:
  explicit PartialFile(const std::wstring& targetPath)
      : targetPath_(targetPath), path_(targetPath + L".download") {
    file_.Reset(::CreateFileW(path_.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
    exists_ = static_cast<bool>(file_);
  }
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;
  ~PartialFile() {
    file_.Reset();
    if (exists_) ::DeleteFileW(path_.c_str());
  }

  [[nodiscard]] bool IsOpen() const { return exists_; }

  [[nodiscard]] bool Write(const std::string& bytes) {
    DWORD writtenBytes = 0;
    return ::WriteFile(file_.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &writtenBytes,
                       nullptr) != FALSE &&
           writtenBytes == bytes.size();
  }

  [[nodiscard]] bool MoveOntoTarget() {
    file_.Reset();
    const bool moved = ::MoveFileExW(path_.c_str(), targetPath_.c_str(),
                                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED) != FALSE;
    if (moved) exists_ = false;
    return moved;
  }

 private:
  std::wstring targetPath_;
  std::wstring path_;
  platform::FileHandle file_;
  bool exists_ = false;
};

// A reply that ends before the length it named is incomplete, even where the system reports no
// error for it.
bool ReadWholeBody(HttpExchange& exchange, PartialFile& partial) {
  std::uint64_t receivedBytes = 0;
  for (std::string chunk = exchange.ReadChunk(); !chunk.empty(); chunk = exchange.ReadChunk()) {
    if (!partial.Write(chunk)) return false;
    receivedBytes += chunk.size();
  }
  const std::optional<std::uint64_t> namedBytes = exchange.ContentLengthBytes();
  return !namedBytes || receivedBytes >= *namedBytes;
}

bool Download(const std::wstring& url, const std::wstring& targetPath) {
  HttpExchange exchange(L"GET", url, kDownloadLimit);
  exchange.Run({});
  if (!IsHttpSuccess(exchange.Status())) return false;

  platform::CreateFolders(platform::ParentFolder(targetPath));
  PartialFile partial(targetPath);
  return partial.IsOpen() && ReadWholeBody(exchange, partial) && partial.MoveOntoTarget();
}

}  // namespace

bool DownloadFile(const std::wstring& url, const std::wstring& targetPath) {
  try {
    return Download(url, targetPath);
  } catch (const std::runtime_error&) {
    return false;  // the exchange failed; what was there before is untouched
  }
}

}  // namespace service
