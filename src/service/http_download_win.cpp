#include "service/http_download_win.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "platform/safe_files.h"
#include "platform/windows_sdk.h"
#include "service/http_exchange_win.h"
#include "service/http_reply.h"
#include "service/http_transport.h"

namespace service {
namespace {

// The file that a download grows in. Unless it is moved onto its target, it is deleted with this
// object, whatever the reason. Until it is whole the system is to delete it with its handle, so
// that it goes with a process that ends in mid-download, too.
class PartialFile {
 public:
  explicit PartialFile(const std::wstring& targetPath)
      : targetPath_(targetPath), path_(targetPath + L".download") {
    // A new file, in no link's place: what lies there goes first, and its target is not touched.
    platform::DeleteAnyFile(path_);
    file_.Reset(::CreateFileW(path_.c_str(), GENERIC_WRITE | DELETE, 0, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr));
    exists_ = static_cast<bool>(file_);
    if (exists_) DeleteWithHandle(true);
  }
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;
  ~PartialFile() {
    file_.Reset();
    if (exists_) ::DeleteFileW(path_.c_str());
  }

  [[nodiscard]] bool IsOpen() const { return exists_; }

  [[nodiscard]] HANDLE Handle() const { return file_.Get(); }

  [[nodiscard]] bool MoveOntoTarget() {
    DeleteWithHandle(false);
    file_.Reset();
    const bool moved = ::MoveFileExW(path_.c_str(), targetPath_.c_str(),
                                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED) != FALSE;
    if (moved) exists_ = false;
    return moved;
  }

 private:
  // A file system that cannot do it leaves the deleting to the destructor.
  void DeleteWithHandle(bool deletes) {
    FILE_DISPOSITION_INFO disposition{};
    disposition.DeleteFile = deletes ? TRUE : FALSE;
    ::SetFileInformationByHandle(file_.Get(), FileDispositionInfo, &disposition,
                                 sizeof(disposition));
  }

  std::wstring targetPath_;
  std::wstring path_;
  platform::FileHandle file_;
  bool exists_ = false;
};

// A reply that ends before the length it named is incomplete, even where the system reports no
// error for it.
bool ReadWholeBody(HttpExchange& exchange, const FileWriter& write, const PartialFile& partial) {
  std::uint64_t receivedBytes = 0;
  for (std::string chunk = exchange.ReadChunk(); !chunk.empty(); chunk = exchange.ReadChunk()) {
    if (write(partial.Handle(), chunk) != chunk.size()) return false;
    receivedBytes += chunk.size();
  }
  const std::optional<std::uint64_t> namedBytes = exchange.ContentLengthBytes();
  return !namedBytes || receivedBytes >= *namedBytes;
}

bool Download(const FileWriter& write, const std::wstring& url, const std::wstring& targetPath,
              const std::stop_token& stop) {
  HttpExchange exchange(L"GET", url, kDownloadLimit, stop);
  exchange.Run({});
  if (!IsHttpSuccess(exchange.Status())) return false;

  platform::CreateFolders(platform::ParentFolder(targetPath));
  PartialFile partial(targetPath);
  return partial.IsOpen() && ReadWholeBody(exchange, write, partial) && partial.MoveOntoTarget();
}

}  // namespace

std::size_t WriteToFile(HANDLE file, const std::string& bytes) {
  DWORD writtenBytes = 0;
  const bool written = ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()),
                                   &writtenBytes, nullptr) != FALSE;
  return written ? writtenBytes : 0;
}

bool DownloadFileWith(const FileWriter& write, const std::wstring& url,
                      const std::wstring& targetPath, const std::stop_token& stop) {
  try {
    return Download(write, url, targetPath, stop);
  } catch (const std::runtime_error&) {
    return false;  // the exchange failed; what was there before is untouched
  }
}

bool DownloadFile(const std::wstring& url, const std::wstring& targetPath,
                  const std::stop_token& stop) {
  return DownloadFileWith(WriteToFile, url, targetPath, stop);
}

}  // namespace service
