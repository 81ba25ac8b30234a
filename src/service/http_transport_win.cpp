#include "service/http_transport.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/path.h"
#include "platform/safe_files.h"
#include "service/http_call.h"
#include "service/http_exchange_win.h"
#include "text/utf8.h"

namespace service {
namespace {

// The file that a download is written to. Deleted with this object unless it was moved onto its
// target. Until it is complete, it is marked for deletion with its handle, so that nothing remains
// of it even if the process ends during the download.
class PartialFile {
 public:
  explicit PartialFile(const std::wstring& targetPath)
      : targetPath_(targetPath), path_(targetPath + L".download") {
    // CREATE_NEW never follows a link. An old file or link at the path is deleted first; a link's
    // target is not touched.
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
    // First: a marked file would disappear when its handle closes.
    DeleteWithHandle(false);
    file_.Reset();
    const bool moved = ::MoveFileExW(path_.c_str(), targetPath_.c_str(),
                                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED) != FALSE;
    if (moved) exists_ = false;
    return moved;
  }

 private:
  // Not every file system supports this; the destructor deletes the file then.
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

// Fails for a reply shorter than its Content-Length, which the system may not report as an error.
bool ReadWholeBody(HttpExchange& exchange, const FileWriter& write, const PartialFile& partial) {
  std::uint64_t receivedBytes = 0;
  for (std::string chunk = exchange.ReadChunk(); !chunk.empty(); chunk = exchange.ReadChunk()) {
    if (write(partial.Handle(), chunk) != chunk.size()) return false;
    receivedBytes += chunk.size();
  }
  const std::optional<std::uint64_t> announcedBytes = exchange.ContentLengthBytes();
  return !announcedBytes || receivedBytes >= *announcedBytes;
}

bool Download(const FileWriter& write, const std::wstring& url, const std::wstring& targetPath,
              const std::stop_token& stop) {
  HttpExchange exchange(L"GET", url, kDownloadLimit, stop);
  exchange.Run({});
  // Before any file exists: an error page must not replace an earlier download.
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
    return false;  // the exchange failed; an earlier file is untouched
  }
}

bool DownloadFile(const std::wstring& url, const std::wstring& targetPath,
                  const std::stop_token& stop) {
  return DownloadFileWith(WriteToFile, url, targetPath, stop);
}

HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                             const std::wstring& body, const std::stop_token& stop) {
  HttpExchange exchange(method, url, kReplyLimit, stop);
  exchange.Run(text::ToUtf8(body));

  HttpResponse response;
  response.status = exchange.Status();
  std::string bytes;
  for (std::string chunk = exchange.ReadChunk(); !chunk.empty(); chunk = exchange.ReadChunk()) {
    bytes += chunk;
  }
  // Decoded as a whole, because a character may be cut between two pieces.
  response.body = text::FromUtf8(bytes);
  return response;
}

JsonRequester RealJsonRequester(std::stop_token stop) {
  return [stop = std::move(stop)](const std::wstring& method, const std::wstring& url,
                                  const std::wstring& body) {
    return SendJsonRequest(method, url, body, stop);
  };
}

}  // namespace service
