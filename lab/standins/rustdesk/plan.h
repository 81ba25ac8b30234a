#pragma once

#include <chrono>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

namespace rustdesk {

enum class Shape { Plain, Owned };

// The stand-in's behaviour; times count from its start.
struct Plan {
  std::wstring title = L"RustDesk";
  // The title until titleAfter.
  std::wstring firstTitle;
  std::chrono::milliseconds titleAfter{0};
  // The window exists at once, with its title, but becomes visible after this time.
  std::chrono::milliseconds showAfter{0};
  // The window's left edge on the screen, in pixels.
  int left = 60;
  // The process ends by itself after this time.
  std::chrono::milliseconds life{60'000};
  // Owned: another visible window owns this one, as with a dialog.
  Shape shape = Shape::Plain;
};

// Reads lines "name=value" (UTF-8): title, firstTitle, titleAfterMs, showAfterMs, left, lifeMs,
// and shape=owned. Missing names keep their defaults; unknown names are ignored.
Plan ReadPlan(std::string_view bytes);

// Appends the stand-in's events to a file as JSON lines (UTF-8). Each line has "event",
// "pid" (Windows' id of this process), "atMs" (milliseconds since the start of Windows) and the
// members passed with it.
//
// Threads: any one at a time; several processes may share a file.
// Errors:  ignored; the line is lost.
class Record {
 public:
  using Member = std::pair<std::string_view, std::wstring_view>;

  explicit Record(std::wstring file) : file_(std::move(file)) {}

  void Add(std::string_view event, std::initializer_list<Member> members = {}) const;

 private:
  const std::wstring file_;
};

// The folder named by LAB_RUSTDESK, or this program's folder. A path that starts with "/" is a
// Linux path.
std::wstring RecordFolder();

// The bytes of a file; empty if it cannot be read.
std::string ReadBytes(const std::wstring& file);

}  // namespace rustdesk
