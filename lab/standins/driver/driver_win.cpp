#include "driver/driver_win.h"

#include <string>
#include <utility>

#include "driver/checksums.h"
#include "driver/filter.h"
#include "driver/packet.h"

namespace driver {
namespace {

constexpr int kShutdownRecv = 1;
constexpr int kShutdownSend = 2;
constexpr int kShutdownBoth = 3;
constexpr int kParamVersionMajor = 3;
constexpr int kParamVersionMinor = 4;
constexpr std::uint64_t kVersion = 2;  // 2.2

// The real library installs the driver from its own folder.
bool HasDriverFile() {
  constexpr DWORD kMaxUnits = 32768;
  HMODULE module = nullptr;
  ::GetModuleHandleExW(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<const wchar_t*>(&Driver::Instance), &module);
  std::wstring path(kMaxUnits, L'\0');
  path.resize(::GetModuleFileNameW(module, path.data(), kMaxUnits));
  path.resize(path.find_last_of(L'\\') + 1);
  path += L"WinDivert64.sys";
  return ::GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace

// The helpers work without a handle, so this fault must be set before the first Open.
Driver::Driver() {
  checksumFault_.at = ReadEnvironment().failChecksum;
}

Driver& Driver::Instance() {
  static Driver driver;
  return driver;
}

std::uint32_t Driver::Open(const char* filter, int layer, int priority, std::uint64_t flags,
                           std::uint64_t& id) {
  const Locked door(doorLock_);
  environment_ = ReadEnvironment();
  recvFault_.at = environment_.failRecv;
  sendFault_.at = environment_.failSend;
  checksumFault_.at = environment_.failChecksum;
  const std::uint32_t error = OpenHandle(filter, layer, priority, flags, id);
  LogOpen(filter, priority, flags, error == kOk ? id : 0, error);
  return error;
}

std::uint32_t Driver::OpenHandle(const char* filter, int layer, int priority, std::uint64_t flags,
                                 std::uint64_t& id) {
  ++openCalls_;
  if (environment_.openError != kOk &&
      (environment_.failOpen == 0 || environment_.failOpen == openCalls_)) {
    return environment_.openError;
  }
  if (filter == nullptr || !IsValidOpen(layer, priority, flags)) return kErrorInvalidParameter;
  auto compiled = CompileFilter(filter);
  if (!compiled) return kErrorInvalidParameter;
  // The order of these checks decides the error code when several apply.
  if (!isLoaded_) {
    if ((flags & kFlagNoInstall) != 0) return kErrorServiceDoesNotExist;
    if (!HasDriverFile()) return kErrorFileNotFound;
    isLoaded_ = true;
  }
  if (compiled->TestCount() > kMaxDriverTests) return kErrorInvalidParameter;
  if (const std::uint32_t error = StartBridge(); error != kOk) return error;
  const Locked locked(lock_);
  id = switchboard_.Add(std::move(*compiled), filter, priority, flags)->id;
  return kOk;
}

std::uint32_t Driver::StartBridge() {
  {
    const Locked locked(lock_);
    if (!switchboard_.IsEmpty()) return kOk;
  }
  return bridge_.Start(environment_.port, environment_.peerPort,
                       [this](std::span<const std::uint8_t> packet) { HandleFromTun(packet); });
}

std::uint32_t Driver::Close(std::uint64_t id) {
  const Locked door(doorLock_);
  bool wasLast = false;
  {
    const Locked locked(lock_);
    const auto handle = switchboard_.Find(id);
    if (handle == nullptr) return kErrorInvalidHandle;
    switchboard_.Remove(id);
    // Calls may still be inside the handle: wake them, and wait until the last one has left.
    handle->isClosed = true;
    changed_.WakeAll();
    while (handle->callersInside > 0) changed_.Wait(lock_);
    DrainOnClose(*handle);
    LogClose(*handle);
    wasLast = switchboard_.IsEmpty();
  }
  // Without lock_, because the bridge's thread may be waiting for it.
  if (wasLast) bridge_.Stop();
  return kOk;
}

void Driver::DrainOnClose(Handle& handle) {
  const auto nowMs = static_cast<std::int64_t>(::GetTickCount64());
  while (auto captured = handle.queue.Pop(nowMs)) {
    const auto headers = ReadHeaders(captured->bytes);
    if (!headers || (handle.flags & kFlagSniff) != 0) continue;
    CompleteChecksums(captured->bytes, *headers, captured->address);
    bridge_.Send(captured->bytes);
    ++handle.drainedCount;
  }
}

std::uint32_t Driver::Shutdown(std::uint64_t id, int how) {
  if (how < kShutdownRecv || how > kShutdownBoth) return kErrorInvalidParameter;
  const Locked locked(lock_);
  const auto handle = switchboard_.Find(id);
  if (handle == nullptr) return kErrorInvalidHandle;
  if ((how & kShutdownRecv) != 0) handle->receivingEnded = true;
  if ((how & kShutdownSend) != 0) handle->sendingEnded = true;
  changed_.WakeAll();
  return kOk;
}

std::uint32_t Driver::SetParam(std::uint64_t id, int param, std::uint64_t value) {
  const Locked locked(lock_);
  const auto handle = switchboard_.Find(id);
  if (handle == nullptr) return kErrorInvalidHandle;
  const bool isSet = handle->queue.SetParam(static_cast<PacketQueue::Param>(param), value);
  return isSet ? kOk : kErrorInvalidParameter;
}

std::uint32_t Driver::GetParam(std::uint64_t id, int param, std::uint64_t& value) {
  const Locked locked(lock_);
  const auto handle = switchboard_.Find(id);
  if (handle == nullptr) return kErrorInvalidHandle;
  if (param < 0 || param > kParamVersionMinor) return kErrorInvalidParameter;
  value = param >= kParamVersionMajor
              ? kVersion
              : handle->queue.GetParam(static_cast<PacketQueue::Param>(param));
  return kOk;
}

bool Driver::IsChecksumFault() noexcept {
  return checksumFault_.IsNow();
}

void Driver::LogOpen(const char* filter, int priority, std::uint64_t flags, std::uint64_t id,
                     std::uint32_t error) {
  AppendLog(environment_.logFile,
            "open handle=" + std::to_string(id) + " error=" + std::to_string(error) +
                " priority=" + std::to_string(priority) + " flags=" + std::to_string(flags) +
                " filter=" + (filter != nullptr ? filter : ""));
}

void Driver::LogClose(const Handle& handle) {
  std::string line = "close handle=" + std::to_string(handle.id);
  const auto add = [&line](const char* name, std::uint64_t count) {
    line += std::string(" ") + name + "=" + std::to_string(count);
  };
  add("captured", handle.capturedCount);
  add("received", handle.receivedCount);
  add("lost", handle.queue.LostCount());
  add("drained", handle.drainedCount);
  add("inbound", handle.inboundCount);
  add("outbound", handle.outboundCount);
  add("wrongChecksum", wrongChecksumCount_);
  add("wrongInterface", wrongInterfaceCount_);
  add("uncaptured", uncapturedCount_);
  add("faults", recvFault_.Count() + sendFault_.Count() + checksumFault_.Count());
  AppendLog(environment_.logFile, line);
}

}  // namespace driver
