#include "frame_decoder.h"

#include <objbase.h>
#include <shlwapi.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "com.h"
#include "options.h"

// The GDI+ headers use min and max unqualified.
namespace Gdiplus {
using std::max;
using std::min;
}  // namespace Gdiplus
#include <gdiplus.h>

namespace browser {
namespace {

// Initialises COM (for the picture codecs) and GDI+ on the decoding thread.
class DecoderThread {
 public:
  DecoderThread() {
    ::CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    const Gdiplus::GdiplusStartupInput input;
    Gdiplus::GdiplusStartup(&token_, &input, nullptr);
  }
  ~DecoderThread() {
    Gdiplus::GdiplusShutdown(token_);
    ::CoUninitialize();
  }
  DecoderThread(const DecoderThread&) = delete;
  DecoderThread& operator=(const DecoderThread&) = delete;

 private:
  ULONG_PTR token_ = 0;
};

}  // namespace

FrameDecoder::FrameDecoder(std::function<void(uint32_t)> done, std::function<void()> changed)
    : done_(std::move(done)), changed_(std::move(changed)), thread_([this] { Run(); }) {}

void FrameDecoder::Put(uint32_t number, std::string jpeg) {
  std::optional<Picture> skipped(Picture{number, std::move(jpeg)});
  {
    const std::lock_guard guard(waitingLock_);
    // Only the newest picture matters: an older one that still waits is skipped.
    std::swap(waiting_, skipped);
  }
  wake_.notify_one();
  // Outside the lock, because done_ sends on the network.
  if (skipped) done_(skipped->number);
}

void FrameDecoder::Stop() {
  {
    const std::lock_guard guard(waitingLock_);
    stopped_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

std::optional<FrameDecoder::Picture> FrameDecoder::Next() {
  std::unique_lock guard(waitingLock_);
  wake_.wait(guard, [this] { return stopped_ || waiting_.has_value(); });
  if (stopped_) return std::nullopt;
  return std::exchange(waiting_, std::nullopt);
}

void FrameDecoder::Run() noexcept {
  try {
    const DecoderThread ready;
    Pixels fresh;
    while (const std::optional<Picture> picture = Next()) {
      const bool decoded = Decode(picture->jpeg, fresh);
      if (decoded) {
        const std::lock_guard guard(shownLock_);
        std::swap(shown_, fresh);
      } else {
        Log("picture %u cannot be decoded", picture->number);
      }
      // Also for an undecodable picture: without an answer the browser would send no more.
      done_(picture->number);
      if (decoded) changed_();
    }
  } catch (const std::exception& error) {
    Log("decoder ended: %s", error.what());
  }
}

bool FrameDecoder::Decode(const std::string& jpeg, Pixels& pixels) {
  const auto stream = ComPtr<IStream>::Adopt(::SHCreateMemStream(
      reinterpret_cast<const BYTE*>(jpeg.data()), static_cast<UINT>(jpeg.size())));
  if (!stream) return false;
  Gdiplus::Bitmap bitmap(stream.Get());
  if (bitmap.GetLastStatus() != Gdiplus::Ok) return false;
  pixels.width = static_cast<int>(bitmap.GetWidth());
  pixels.height = static_cast<int>(bitmap.GetHeight());
  pixels.rows.resize(static_cast<size_t>(bitmap.GetWidth()) * bitmap.GetHeight());
  Gdiplus::BitmapData data{};
  data.Width = bitmap.GetWidth();
  data.Height = bitmap.GetHeight();
  data.Stride = pixels.width * 4;
  data.PixelFormat = PixelFormat32bppRGB;
  data.Scan0 = pixels.rows.data();
  const Gdiplus::Rect whole(0, 0, pixels.width, pixels.height);
  const UINT mode = Gdiplus::ImageLockModeRead | Gdiplus::ImageLockModeUserInputBuf;
  if (bitmap.LockBits(&whole, mode, PixelFormat32bppRGB, &data) != Gdiplus::Ok) return false;
  bitmap.UnlockBits(&data);
  return true;
}

SIZE FrameDecoder::Paint(HDC target) {
  const std::lock_guard guard(shownLock_);
  if (shown_.rows.empty()) return {0, 0};
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof(info.bmiHeader);
  info.bmiHeader.biWidth = shown_.width;
  info.bmiHeader.biHeight = -shown_.height;  // top row first
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  info.bmiHeader.biCompression = BI_RGB;
  ::SetDIBitsToDevice(target, 0, 0, static_cast<DWORD>(shown_.width),
                      static_cast<DWORD>(shown_.height), 0, 0, 0, static_cast<UINT>(shown_.height),
                      shown_.rows.data(), &info, DIB_RGB_COLORS);
  return {shown_.width, shown_.height};
}

}  // namespace browser
