#include "win32/calls.h"

#include <algorithm>
#include <cstdio>

#include "win32/hooks.h"

namespace win32 {
namespace {

// The calls whose results `api` releases.
std::vector<Api> TakenBackBy(Api api) {
  switch (api) {
    case Api::CloseHandle:
      return {Api::CreateEventW, Api::CreateFileMappingW, Api::CreateFileW,    Api::CreateProcessW,
              Api::OpenProcess,  Api::OpenProcessToken,   Api::ShellExecuteExW};
    case Api::FindClose:
      return {Api::FindFirstFileW};
    case Api::FreeLibrary:
      return {Api::LoadLibraryExW, Api::LoadLibraryW};
    case Api::RegCloseKey:
      return {Api::RegCreateKeyExW, Api::RegOpenKeyExW};
    case Api::WinHttpCloseHandle:
      return {Api::WinHttpConnect, Api::WinHttpOpen, Api::WinHttpOpenRequest};
    case Api::IcmpCloseHandle:
      return {Api::IcmpCreateFile};
    case Api::GlobalFree:
    case Api::SetClipboardData:
      return {Api::GlobalAlloc};
    case Api::LocalFree:
      return {Api::CommandLineToArgvW, Api::ConvertSidToStringSidW, Api::FormatMessageW,
              Api::ConvertStringSecurityDescriptorToSecurityDescriptorW};
    case Api::CoTaskMemFree:
      return {Api::SHGetKnownFolderPath};
    case Api::DeleteObject:
      return {Api::CreateFontW, Api::CreateSolidBrush};
    case Api::DestroyWindow:
      return {Api::CreateWindowExW};
    case Api::UnmapViewOfFile:
      return {Api::MapViewOfFile};
    case Api::UnregisterSuspendResumeNotification:
      return {Api::RegisterSuspendResumeNotification};
    case Api::CancelMibChangeNotify2:
      return {Api::NotifyUnicastIpAddressChange};
    case Api::WTSFreeMemory:
      return {Api::WTSQuerySessionInformationW};
    case Api::closesocket:
      return {Api::accept, Api::socket};
    case Api::freeaddrinfo:
      return {Api::getaddrinfo};
    default:
      return {};
  }
}

bool IsGivenBack(Api by) {
  for (std::size_t i = 0; i < kApiCount; ++i) {
    const std::vector<Api> taken = TakenBackBy(static_cast<Api>(i));
    if (std::ranges::find(taken, by) != taken.end()) return true;
  }
  return false;
}

std::string Lines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += "  " + line + "\n";
  return text;
}

testing::AssertionResult Compare(const std::vector<std::string>& calls,
                                 const std::vector<std::string>& expected) {
  if (calls == expected) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "the calls were\n"
                                     << Lines(calls) << "and should be\n"
                                     << Lines(expected);
}

}  // namespace

Calls::Calls(Threads threads) : thread_(Hooks::ThreadId()), threads_(threads) {
  Hooks::Attach(this);
}

Calls::~Calls() {
  Hooks::Detach();
  Note();
}

void Calls::Fail(Api api, DWORD error, int nth) {
  const Hooks::Lock held;
  failures_.push_back({false, api, error, nth, 0});
}

void Calls::FailAny(DWORD error, int nth) {
  const Hooks::Lock held;
  failures_.push_back({true, {}, error, nth, 0});
}

Order Calls::Enter(Api api, void* returnsTo, std::string text, std::uintptr_t firstArgument) {
  const Hooks::Lock held;
  Order order;
  for (PlannedFailure& failure : failures_) {
    const bool meant = failure.anyApi ? Of(api).failsAs != FailsAs::Never : failure.api == api;
    if (!meant) continue;
    ++failure.seen;
    if (failure.nth != 0 && failure.seen != failure.nth) continue;
    order.fails = true;
    order.error = failure.error;
  }
  calls_.push_back({api, std::move(text), returnsTo, order.fails, false});
  if (api != Api::SetClipboardData) TakeBack(api, firstArgument);
  return order;
}

void Calls::Give(Api by, std::uintptr_t value) {
  if (value == 0 || value == ~std::uintptr_t{0}) return;
  const Hooks::Lock held;
  const std::string name = "h" + std::to_string(given_.size() + 1);
  given_.push_back({name, by, value, IsGivenBack(by)});
  names_[value] = name;
}

void Calls::Transfer(Api by, std::uintptr_t value) {
  const Hooks::Lock held;
  TakeBack(by, value);
}

// Requires the lock.
void Calls::TakeBack(Api by, std::uintptr_t value) {
  const std::vector<Api> takes = TakenBackBy(by);
  if (takes.empty() || value == 0) return;
  const auto isMeant = [&](const Gift& given) {
    return given.value == value && std::ranges::find(takes, given.by) != takes.end();
  };
  // A handle from before the recording is ignored.
  const auto last = std::find_if(given_.rbegin(), given_.rend(), isMeant);
  if (last == given_.rend()) return;
  if (!last->isOpen) wronglyClosed_.push_back(last->name + " twice");
  last->isOpen = false;
}

testing::AssertionResult Calls::Were(const std::vector<std::string>& expected) {
  std::set<Api> all;
  for (const Call& call : calls_) all.insert(call.api);
  return WereAmong(all, expected);
}

testing::AssertionResult Calls::WereAmong(const std::set<Api>& looked,
                                          const std::vector<std::string>& expected) {
  const Hooks::Lock held;
  std::vector<std::string> texts;
  for (Call& call : calls_) {
    if (!looked.contains(call.api) || ignored_.contains(call.text)) continue;
    texts.push_back(call.text);
  }
  testing::AssertionResult result = Compare(texts, expected);
  if (!result) return result;
  for (Call& call : calls_) call.asserted = call.asserted || looked.contains(call.api);
  return result;
}

testing::AssertionResult Calls::EachWas(Api api, const std::string& expected) {
  const int count = std::max(Count(api), 1);
  return WereAmong({api}, std::vector<std::string>(static_cast<std::size_t>(count), expected));
}

testing::AssertionResult Calls::Had(const std::string& expected) {
  const Hooks::Lock held;
  bool found = false;
  for (Call& call : calls_) {
    if (call.text != expected) continue;
    found = true;
    call.asserted = true;
  }
  if (found) return testing::AssertionSuccess();
  return testing::AssertionFailure() << "no call was\n  " << expected << "\n";
}

void Calls::Ignore(const std::string& text) {
  const Hooks::Lock held;
  ignored_.insert(text);
}

std::string Calls::Given(Api api) const {
  const Hooks::Lock held;
  const auto found = std::ranges::find(given_, api, &Gift::by);
  return found == given_.end() ? "nothing" : found->name;
}

int Calls::Count(Api api) const {
  const Hooks::Lock held;
  return static_cast<int>(std::ranges::count(calls_, api, &Call::api));
}

int Calls::CountThatCanFail() const {
  const Hooks::Lock held;
  return static_cast<int>(std::ranges::count_if(
      calls_, [](const Call& call) { return Of(call.api).failsAs != FailsAs::Never; }));
}

std::string Calls::Failed() const {
  const Hooks::Lock held;
  const auto found = std::ranges::find(calls_, true, &Call::failed);
  return found == calls_.end() ? "" : Of(found->api).name;
}

std::string Calls::Unbalanced() const {
  const Hooks::Lock held;
  std::string text;
  for (const Gift& given : given_) {
    if (given.isOpen) text += given.name + " of " + Of(given.by).name + "; ";
  }
  for (const std::string& closed : wronglyClosed_) text += "closed " + closed + "; ";
  return text.substr(0, text.size() - std::min<std::size_t>(text.size(), 2));
}

void Calls::Note() const {
  std::vector<std::string> lines;
  for (const Call& call : calls_) {
    if (!call.failed && !call.asserted) continue;
    char address[32] = {};
    std::snprintf(address, sizeof(address), "%llx", Hooks::OffsetInProgram(call.returnsTo));
    lines.push_back(std::string(Of(call.api).name) + " " + address +
                    (call.failed ? " failed" : " asserted"));
  }
  Hooks::AppendToRecord(lines);
}

std::string JoinCall(Api api, const std::vector<std::string>& arguments) {
  std::string text = std::string(Of(api).name) + "(";
  for (std::size_t i = 0; i < arguments.size(); ++i) text += (i == 0 ? "" : ", ") + arguments[i];
  return text + ")";
}

std::string EachFailure(const std::function<std::string()>& operation, DWORD error,
                        const std::function<void(Calls& calls)>& prepare) {
  std::string text;
  {
    Calls calls;
    prepare(calls);
    text = "all well: " + operation() + "\n";  // also absorbs one-time allocations
  }
  int runs = 0;
  {
    Calls calls;
    prepare(calls);
    operation();
    runs = calls.CountThatCanFail();
  }
  for (int nth = 1; nth <= runs; ++nth) {
    Calls calls;
    prepare(calls);
    calls.FailAny(error, nth);
    const std::size_t before = OpenHandles();
    const std::string result = operation();
    const std::size_t after = OpenHandles();
    text += calls.Failed() + ": " + result;
    if (before != after) text += " LEAKED " + std::to_string(after - before);
    if (!calls.Unbalanced().empty()) text += " LEAKED " + calls.Unbalanced();
    text += "\n";
  }
  return text;
}

}  // namespace win32
