#pragma once

#include <cstring>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "win32/calls.h"

namespace service {

// The part of WinHTTP that an exchange uses, without a network: answers the calls that `calls`
// records. Each asynchronous call reports its end before it returns.
//
// Threads: the one that makes the calls.
class FakeHttp {
 public:
  using Api = win32::Api;

  explicit FakeHttp(win32::Calls& calls) {
    AnswerHandles(calls);
    AnswerRequest(calls);
    AnswerReply(calls);
  }

  DWORD status = 200;
  std::optional<std::wstring> contentLength;
  std::deque<std::string> pieces;     // of the body, as they arrive
  std::size_t unreadBytes = 0;        // of each piece: a read returns fewer than announced
  std::map<Api, DWORD> failingLater;  // calls that start successfully and then report this error
  std::set<Api> silent;               // calls whose end is never reported
  // The context passed to its reports.
  [[nodiscard]] DWORD_PTR Context() const { return context_; }

  int partings = 0;  // request handles that have reported their closing

 private:
  static HINTERNET MakeHandle(std::uintptr_t number) { return reinterpret_cast<HINTERNET>(number); }
  static constexpr std::uintptr_t kRequest = 0x103;

  void AnswerHandles(win32::Calls& calls) {
    calls.AnswerWith<Api::WinHttpOpen>([](const wchar_t*, DWORD, const wchar_t*, const wchar_t*,
                                          DWORD) { return MakeHandle(0x101); });
    calls.AnswerWith<Api::WinHttpSetTimeouts>([](HINTERNET, int, int, int, int) { return TRUE; });
    calls.AnswerWith<Api::WinHttpConnect>(
        [](HINTERNET, const wchar_t*, INTERNET_PORT, DWORD) { return MakeHandle(0x102); });
    calls.AnswerWith<Api::WinHttpOpenRequest>([](HINTERNET, const wchar_t*, const wchar_t*,
                                                 const wchar_t*, const wchar_t*, const wchar_t**,
                                                 DWORD) { return MakeHandle(kRequest); });
    calls.AnswerWith<Api::WinHttpCloseHandle>([this](HINTERNET handle) {
      if (handle == MakeHandle(kRequest)) {
        Report(WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING, nullptr, 0);
        ++partings;
      }
      return TRUE;
    });
  }

  void AnswerRequest(win32::Calls& calls) {
    calls.AnswerWith<Api::WinHttpSetStatusCallback>(
        [this](HINTERNET, WINHTTP_STATUS_CALLBACK callback, DWORD, DWORD_PTR) {
          return std::exchange(callback_, callback);
        });
    calls.AnswerWith<Api::WinHttpSetOption>([this](HINTERNET, DWORD, void* value, DWORD) {
      std::memcpy(&context_, value, sizeof(context_));
      return TRUE;
    });
    calls.AnswerWith<Api::WinHttpSendRequest>([this](HINTERNET, const wchar_t*, DWORD, void*, DWORD,
                                                     DWORD, DWORD_PTR context) {
      context_ = context;  // replaces the handle's
      if (failingLater.contains(Api::WinHttpSendRequest)) {
        return End(Api::WinHttpSendRequest, 0, nullptr, 0);
      }
      Report(WINHTTP_CALLBACK_STATUS_REQUEST_SENT, nullptr, 0);
      return End(Api::WinHttpSendRequest, WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE, nullptr, 0);
    });
    calls.AnswerWith<Api::WinHttpReceiveResponse>([this](HINTERNET, void*) {
      return End(Api::WinHttpReceiveResponse, WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE, nullptr,
                 0);
    });
  }

  void AnswerReply(win32::Calls& calls) {
    calls.AnswerWith<Api::WinHttpQueryHeaders>(
        [this](HINTERNET, DWORD what, const wchar_t*, void* value, DWORD* sizeBytes, DWORD*) {
          return WriteHeader(what, value, *sizeBytes);
        });
    calls.AnswerWith<Api::WinHttpQueryDataAvailable>([this](HINTERNET, DWORD*) {
      auto bytes = static_cast<DWORD>(pieces.empty() ? 0 : pieces.front().size());
      return End(Api::WinHttpQueryDataAvailable, WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE, &bytes,
                 sizeof(bytes));
    });
    calls.AnswerWith<Api::WinHttpReadData>([this](HINTERNET, void* buffer, DWORD, DWORD*) {
      const std::string piece = pieces.front().substr(0, pieces.front().size() - unreadBytes);
      pieces.pop_front();
      std::memcpy(buffer, piece.data(), piece.size());
      return End(Api::WinHttpReadData, WINHTTP_CALLBACK_STATUS_READ_COMPLETE, buffer,
                 static_cast<DWORD>(piece.size()));
    });
  }

  BOOL WriteHeader(DWORD what, void* value, DWORD sizeBytes) const {
    if (what == (WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER)) {
      std::memcpy(value, &status, sizeof(status));
      return TRUE;
    }
    if (what != WINHTTP_QUERY_CONTENT_LENGTH || !contentLength) return FALSE;
    const std::size_t neededBytes = (contentLength->size() + 1) * sizeof(wchar_t);
    if (neededBytes > sizeBytes) return FALSE;
    std::memcpy(value, contentLength->c_str(), neededBytes);
    return TRUE;
  }

  BOOL End(Api api, DWORD end, void* information, DWORD informationBytes) {
    const auto failing = failingLater.find(api);
    if (failing != failingLater.end()) {
      WINHTTP_ASYNC_RESULT result{0, failing->second};
      Report(WINHTTP_CALLBACK_STATUS_REQUEST_ERROR, &result, sizeof(result));
    } else if (!silent.contains(api)) {
      Report(end, information, informationBytes);
    }
    return TRUE;
  }

  void Report(DWORD event, void* information, DWORD informationBytes) const {
    if (callback_ != nullptr) {
      callback_(MakeHandle(kRequest), context_, event, information, informationBytes);
    }
  }

  WINHTTP_STATUS_CALLBACK callback_ = nullptr;
  DWORD_PTR context_ = 0;
};

}  // namespace service
