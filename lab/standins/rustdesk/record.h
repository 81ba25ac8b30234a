#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace rustdesk {

// What happened to the stand-in, as JSON lines (UTF-8) at the end of a file. Each line has "event",
// "pid" (Windows' id of this process), "atMs" (milliseconds since the start of Windows) and the
// members given with it.
//
// Threads: any one at a time; several processes may share a file.
// Errors:  a line that cannot be written is lost.
class Record {
 public:
  using Member = std::pair<std::string_view, std::wstring_view>;

  explicit Record(std::wstring file) : file_(std::move(file)) {}

  void Add(std::string_view event, std::initializer_list<Member> members = {}) const;

 private:
  const std::wstring file_;
};

// The folder that LAB_RUSTDESK names, else the one of this program's file. A path that starts with
// "/" is one of the machine under Wine.
std::wstring RecordFolder();

// The bytes of a file; none when it cannot be read.
std::string ReadBytes(const std::wstring& file);

}  // namespace rustdesk
