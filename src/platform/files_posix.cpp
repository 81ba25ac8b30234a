#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "platform/files.h"
#include "platform/unique_handle.h"
#include "text/utf8.h"

// Files of the native build, for testing the code above them. Paths are built with backslashes, as
// on Windows, and converted here.
namespace platform {
namespace {

std::string NativePath(const std::wstring& path) {
  std::string native = text::ToUtf8(path);
  std::replace(native.begin(), native.end(), '\\', '/');
  return native;
}

struct DescriptorTraits {
  using Raw = int;
  static Raw Invalid() noexcept { return -1; }
  static bool IsValid(Raw descriptor) noexcept { return descriptor >= 0; }
  static void Close(Raw descriptor) noexcept { ::close(descriptor); }
};
using Descriptor = UniqueHandle<DescriptorTraits>;

SystemResult LastFailure() {
  return {false, static_cast<std::uint32_t>(errno)};
}

SystemResult WriteOver(const std::wstring& path, std::string_view bytes, bool flush) {
  constexpr mode_t kEveryoneReads = 0644;
  const Descriptor file(
      ::open(NativePath(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kEveryoneReads));
  if (!file) return LastFailure();
  while (!bytes.empty()) {  // write() may take less than asked
    const ssize_t takenBytes = ::write(file.Get(), bytes.data(), bytes.size());
    if (takenBytes < 0) return LastFailure();
    bytes.remove_prefix(static_cast<std::size_t>(takenBytes));
  }
  if (flush && ::fsync(file.Get()) != 0) return LastFailure();
  return {true, 0};
}

std::vector<std::wstring> ListNames(const std::wstring& folder, bool wantsFolders) {
  std::vector<std::wstring> names;
  std::error_code error;
  std::filesystem::directory_iterator entry(NativePath(folder), error);
  // By error code, because nothing here throws: a folder that cannot be read has no names.
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    std::error_code unknown;  // an entry of unknown kind counts as a file
    if (entry->is_directory(unknown) != wantsFolders) continue;
    names.push_back(text::FromUtf8(entry->path().filename().string()));
  }
  return names;
}

}  // namespace

std::optional<std::string> ReadFileBytes(const std::wstring& path) {
  if (!IsFile(path)) return std::nullopt;  // a stream would open a folder
  std::ifstream file(NativePath(path), std::ios::binary);
  if (!file) return std::nullopt;
  std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) return std::nullopt;
  return bytes;
}

bool WriteFileBytes(const std::wstring& path, const std::string& bytes) {
  return WriteOver(path, bytes, false).succeeded;
}

SystemResult WriteFileDurably(const std::wstring& path, const std::string& bytes) {
  return WriteOver(path, bytes, true);
}

void AppendToFile(const std::wstring& path, int /*ownParts*/, std::string_view mark,
                  std::string_view bytes) {
  const bool existed = IsFile(path);
  std::ofstream file(NativePath(path), std::ios::binary | std::ios::app);
  if (!existed) file.write(mark.data(), static_cast<std::streamsize>(mark.size()));
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool IsFile(const std::wstring& path) {
  struct stat status {};
  return ::stat(NativePath(path).c_str(), &status) == 0 && !S_ISDIR(status.st_mode);
}

std::optional<std::uint64_t> FileSizeBytes(const std::wstring& path) {
  struct stat status {};
  if (::stat(NativePath(path).c_str(), &status) != 0 || S_ISDIR(status.st_mode)) {
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(status.st_size);
}

std::vector<std::wstring> ListFolders(const std::wstring& folder) {
  return ListNames(folder, true);
}

std::vector<std::wstring> ListFiles(const std::wstring& folder) {
  return ListNames(folder, false);
}

bool DeleteFileAt(const std::wstring& path) {
  return ::unlink(NativePath(path).c_str()) == 0 || !IsFile(path);
}

bool CreateFolders(const std::wstring& path) {
  std::error_code error;
  const std::filesystem::path folder(NativePath(path));
  // Its result is false for an existing folder, so the state afterwards decides.
  std::filesystem::create_directories(folder, error);
  return std::filesystem::is_directory(folder, error);
}

}  // namespace platform
