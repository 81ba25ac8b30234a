#include "diag/proxy_bypass.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <utility>

#include "text/ipv4_text.h"
#include "text/strings.h"

namespace diag {
namespace {

using Entries = std::vector<std::wstring>;

constexpr wchar_t kAdded[] = L"已加入系统代理旁路：";
constexpr wchar_t kRemoved[] = L"已移除系统代理旁路：";
constexpr wchar_t kLeftovers[] = L"已清理上次运行遗留的系统代理旁路：";
constexpr std::wstring_view kSeparator = L";";
constexpr std::uint32_t kMaxPrefix = 32;

// Only decimal digits, at most 32.
std::optional<std::uint32_t> ParsePrefix(std::wstring_view digits) {
  if (digits.empty()) return std::nullopt;
  std::uint32_t prefix = 0;
  for (const wchar_t digit : digits) {
    if (digit < L'0' || digit > L'9') return std::nullopt;
    prefix = prefix * 10 + static_cast<std::uint32_t>(digit - L'0');
    // At once, before many digits overflow the number.
    if (prefix > kMaxPrefix) return std::nullopt;
  }
  return prefix;
}

// The first `count` octets, each followed by a dot, and "*".
std::wstring WholeOctets(const std::wstring& address, int count) {
  std::size_t end = 0;
  for (int i = 0; i < count; ++i) end = address.find(L'.', end) + 1;
  return address.substr(0, end) + L"*";
}

std::wstring EntryFor(std::uint32_t address, std::uint32_t prefix) {
  // Less than a whole byte would have to be "*": all addresses, past the user's proxy.
  if (prefix < 8) return {};
  std::wstring network = text::FormatIpv4(address & ~std::uint32_t{0} << (kMaxPrefix - prefix));
  // A single host needs no "*".
  if (prefix == kMaxPrefix) return network;
  return WholeOctets(network, static_cast<int>(prefix / 8));
}

bool Has(const Entries& list, const std::wstring& entry) {
  return std::ranges::any_of(
      list, [&](const std::wstring& other) { return text::EqualsIgnoreCase(other, entry); });
}

Entries Split(std::wstring_view list) {
  Entries entries;
  while (!list.empty()) {
    const std::size_t end = std::min(list.find(kSeparator), list.size());
    std::wstring entry = text::Trim(list.substr(0, end));
    if (!entry.empty()) entries.push_back(std::move(entry));
    list.remove_prefix(std::min(end + kSeparator.size(), list.size()));
  }
  return entries;
}

// True if the list was written.
bool AddTo(const ProxyListDeps& store, const Entries& entries, ProxyNote& note) {
  const platform::MutexLock held(note.lock);
  const std::optional<std::wstring> text = store.read();
  // Unreadable is not empty: writing would replace the user's own entries.
  if (!text) return false;
  Entries list = Split(*text);
  Entries added = entries;
  std::erase_if(added, [&](const std::wstring& entry) { return Has(list, entry); });
  // The user's own entries are neither added again nor noted.
  if (added.empty()) return false;
  // Before the write: a crash in between leaves a note too many, never an unnoted entry.
  note.Remember(store.user, added);
  list.insert(list.end(), added.begin(), added.end());
  store.write(text::Join(list, kSeparator));
  return true;
}

// True if the list was written.
bool RemoveFrom(const ProxyListDeps& store, const Entries& entries, ProxyNote& note) {
  const platform::MutexLock held(note.lock);
  const std::optional<std::wstring> text = store.read();
  if (!text) return false;
  Entries list = Split(*text);
  const bool changed =
      std::erase_if(list, [&](const std::wstring& entry) { return Has(entries, entry); }) > 0;
  const bool isRemoved = !changed || store.write(text::Join(list, kSeparator));
  // Entries that could not be removed stay noted for the next start.
  if (isRemoved) note.Forget(store.user, entries);
  return changed;
}

// Removes the last copy of each entry, because the program appends its own, and returns those that
// it removed.
Entries RemoveLast(const ProxyListDeps& store, const Entries& entries, ProxyNote& note) {
  const platform::MutexLock held(note.lock);
  const std::optional<std::wstring> text = store.read();
  if (!text) return {};
  Entries list = Split(*text);
  Entries removed;
  for (const std::wstring& entry : entries) {
    const auto last = std::find_if(list.rbegin(), list.rend(), [&](const std::wstring& other) {
      return text::EqualsIgnoreCase(other, entry);
    });
    if (last == list.rend()) continue;
    list.erase(std::next(last).base());
    removed.push_back(entry);
  }
  // A list that could not be written keeps its note for the next start.
  if (!removed.empty() && !store.write(text::Join(list, kSeparator))) return {};
  note.Forget(store.user, entries);
  return removed;
}

void Add(const Entries& entries, const ProxyListDeps& store, ProxyNote& note) {
  // After AddTo() has released the lock, because announcing may take seconds.
  if (AddTo(store, entries, note)) store.announce();
  for (const ProxyListDeps& other : store.others) Add(entries, other, note);
}

// True if a list has changed.
bool Remove(const Entries& entries, const ProxyListDeps& store, ProxyNote& note) {
  bool changed = RemoveFrom(store, entries, note);
  if (changed) store.announce();
  for (const ProxyListDeps& other : store.others) changed |= Remove(entries, other, note);
  return changed;
}

}  // namespace

std::wstring RouteToBypassEntry(std::wstring_view route) {
  const std::size_t slash = route.find(L'/');
  if (slash == std::wstring_view::npos) return {};
  const auto address = text::ParseIpv4(text::Trim(route.substr(0, slash)));
  const auto prefix = ParsePrefix(text::Trim(route.substr(slash + 1)));
  if (!address || !prefix) return {};
  return EntryFor(*address, *prefix);
}

Entries BypassEntriesForRoutes(const std::vector<std::wstring>& routes) {
  Entries entries;
  for (const std::wstring& route : routes) {
    std::wstring entry = RouteToBypassEntry(route);
    if (!entry.empty() && !Has(entries, entry)) entries.push_back(std::move(entry));
  }
  return entries;
}

std::wstring AddProxyBypass(const std::vector<std::wstring>& routes, const ProxyListDeps& store,
                            ProxyNote& note) {
  const Entries entries = BypassEntriesForRoutes(routes);
  if (entries.empty()) return {};
  Add(entries, store, note);
  return kAdded + text::Join(entries, kSeparator);
}

std::wstring RemoveProxyBypass(const std::vector<std::wstring>& routes, const ProxyListDeps& store,
                               ProxyNote& note) {
  const Entries entries = BypassEntriesForRoutes(routes);
  if (entries.empty() || !Remove(entries, store, note)) return {};
  return kRemoved + text::Join(entries, kSeparator);
}

std::wstring RemoveLeftovers(ProxyNote& note,
                             const std::function<ProxyListDeps(const std::wstring& user)>& listOf) {
  // The lock is not held while programs are notified, which may take seconds.
  std::vector<NotedList> lists;
  {
    const platform::MutexLock held(note.lock);
    lists = note.Read();
  }
  Entries all;
  for (const NotedList& noted : lists) {
    const ProxyListDeps store = listOf(noted.user);
    const Entries removed = RemoveLast(store, noted.entries, note);
    if (removed.empty()) continue;
    store.announce();
    std::ranges::copy_if(removed, std::back_inserter(all),
                         [&](const std::wstring& entry) { return !Has(all, entry); });
  }
  return all.empty() ? std::wstring() : kLeftovers + text::Join(all, kSeparator);
}

}  // namespace diag
