#pragma once

#include <windows.h>

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace browser {

// Decodes the browser's JPEG pictures on its own thread and keeps the newest.
//
// A picture that is replaced while it waits is skipped. `done` gets the number of every picture
// that was decoded or skipped, so that the browser sends no faster than we decode; `changed`
// reports a new picture. Both run on the decoder's thread or inside Put().
class FrameDecoder {
 public:
  FrameDecoder(std::function<void(uint32_t)> done, std::function<void()> changed);
  ~FrameDecoder() { Stop(); }
  FrameDecoder(const FrameDecoder&) = delete;
  FrameDecoder& operator=(const FrameDecoder&) = delete;

  // Any thread.
  void Put(uint32_t number, std::string jpeg);
  // Ends the thread; safe to call again.
  void Stop();
  // Draws the newest picture at the client area's corner and returns its size; {0, 0} if none.
  SIZE Paint(HDC target);

 private:
  struct Picture {
    uint32_t number;
    std::string jpeg;
  };
  struct Pixels {
    int width = 0;
    int height = 0;
    std::vector<uint32_t> rows;  // top row first, 0x00RRGGBB
  };

  void Run() noexcept;
  std::optional<Picture> Next();
  static bool Decode(const std::string& jpeg, Pixels& pixels);

  const std::function<void(uint32_t)> done_;
  const std::function<void()> changed_;
  std::mutex waitingLock_;  // guards waiting_ and stopped_
  std::condition_variable wake_;
  std::optional<Picture> waiting_;
  bool stopped_ = false;
  std::mutex shownLock_;  // guards shown_
  Pixels shown_;
  std::thread thread_;
};

}  // namespace browser
