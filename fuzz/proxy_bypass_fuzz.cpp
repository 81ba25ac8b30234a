// Input: two users' proxy lists, then routes, one per line. Adding and removing the routes' entries
// must change the lists exactly as a simple second implementation does.

#include <vector>

#include "diag/proxy_bypass.h"
#include "fuzz_input.h"
#include "platform/memory_files.h"
#include "text/ipv4_text.h"
#include "text/strings.h"

namespace diag {
namespace {

using fuzz::Require;
using Entries = std::vector<std::wstring>;

// Builds the entry octet by octet; the program truncates the address text instead.
std::wstring PlainEntry(const std::wstring& route) {
  const std::size_t slash = route.find(L'/');
  if (slash == std::wstring::npos) return {};
  const auto address = text::ParseIpv4(text::Trim(route.substr(0, slash)));
  const std::wstring digits = text::Trim(route.substr(slash + 1));
  const bool isNumber =
      !digits.empty() && digits.find_first_not_of(L"0123456789") == std::wstring::npos;
  if (!address || !isNumber) return {};
  const std::size_t firstDigit = std::min(digits.find_first_not_of(L'0'), digits.size() - 1);
  if (digits.size() - firstDigit > 2) return {};
  const int prefix = std::stoi(digits.substr(firstDigit));
  if (prefix < 8 || prefix > 32) return {};
  std::wstring entry;
  for (int octet = 0; octet < prefix / 8; ++octet) {
    entry += std::to_wstring(*address >> (24 - 8 * octet) & 0xFF) + L".";
  }
  if (prefix < 32) return entry + L"*";
  entry.pop_back();
  return entry;
}

Entries PlainSplit(const std::wstring& list) {
  Entries entries;
  std::wstring entry;
  for (const wchar_t unit : list + L";") {
    if (unit != L';') {
      entry += unit;
      continue;
    }
    if (!text::Trim(entry).empty()) entries.push_back(text::Trim(entry));
    entry.clear();
  }
  return entries;
}

// Entries for routes contain no letters, so letter case does not matter.
bool Has(const Entries& entries, const std::wstring& entry) {
  return std::ranges::find(entries, entry) != entries.end();
}

Entries PlainEntries(const Entries& routes) {
  Entries entries;
  for (const std::wstring& route : routes) {
    const std::wstring entry = PlainEntry(route);
    if (!entry.empty() && !Has(entries, entry)) entries.push_back(entry);
  }
  return entries;
}

struct List {
  std::wstring text;
  int writes = 0;

  ProxyListDeps Store(const std::wstring& user) {
    ProxyListDeps store;
    store.read = [this] { return text; };
    store.write = [this](const std::wstring& list) {
      text = list;
      ++writes;
      return true;
    };
    store.announce = [] {};
    store.user = user;
    return store;
  }

  // Requires the list to be `wanted` now, and not to have been written if it was so `before`.
  void Check(const std::wstring& before, const Entries& wanted) {
    const bool isChanged = wanted != PlainSplit(before);
    Require(writes == (isChanged ? 1 : 0));
    Require(text == (isChanged ? text::Join(wanted, L";") : before));
    writes = 0;
  }
};

Entries With(Entries list, const Entries& added) {
  for (const std::wstring& entry : added) {
    if (!Has(list, entry)) list.push_back(entry);
  }
  return list;
}

Entries Without(Entries list, const Entries& removed) {
  std::erase_if(list, [&](const std::wstring& entry) { return Has(removed, entry); });
  return list;
}

void Run(fuzz::Input input) {
  List own{input.WideLine()};
  List other{input.WideLine()};
  const Entries routes = text::SplitLines(text::FromUtf8(input.Rest()));
  const Entries entries = PlainEntries(routes);
  Require(BypassEntriesForRoutes(routes) == entries);
  ProxyListDeps store = own.Store(L"");
  store.others.push_back(other.Store(L"S-1"));
  platform::MemoryFiles kept;
  ProxyNote note(L"note", kept);

  for (int time = 0; time < 2; ++time) {
    const std::wstring ownBefore = own.text;
    const std::wstring otherBefore = other.text;
    Require(AddProxyBypass(routes, store, note).empty() == entries.empty());
    own.Check(ownBefore, With(PlainSplit(ownBefore), entries));
    other.Check(otherBefore, With(PlainSplit(otherBefore), entries));
  }
  for (int time = 0; time < 2; ++time) {
    const std::wstring ownBefore = own.text;
    const std::wstring otherBefore = other.text;
    const bool isNothing = RemoveProxyBypass(routes, store, note).empty();
    Require(isNothing == (own.writes + other.writes == 0));
    own.Check(ownBefore, Without(PlainSplit(ownBefore), entries));
    other.Check(otherBefore, Without(PlainSplit(otherBefore), entries));
  }
}

}  // namespace
}  // namespace diag

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  diag::Run(fuzz::Input(data, sizeBytes));
  return 0;
}
