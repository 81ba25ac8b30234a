#include "diag/proxy_bypass.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>

#include "text/ipv4_text.h"
#include "text/strings.h"

namespace diag {
namespace {

using Entries = std::vector<std::wstring>;

constexpr wchar_t kAdded[] = L"已加入系统代理旁路：";
constexpr wchar_t kRemoved[] = L"已移除系统代理旁路：";
constexpr std::wstring_view kSeparator = L";";
constexpr std::uint32_t kMaxPrefix = 32;

// Decimal digits alone, at most 32.
std::optional<std::uint32_t> ParsePrefix(std::wstring_view digits) {
  if (digits.empty()) return std::nullopt;
  std::uint32_t prefix = 0;
  for (const wchar_t digit : digits) {
    if (digit < L'0' || digit > L'9') return std::nullopt;
    prefix = prefix * 10 + static_cast<std::uint32_t>(digit - L'0');
    if (prefix > kMaxPrefix) return std::nullopt;
  }
  return prefix;
}

// The first `count` octets with a point behind each, then "*".
std::wstring WholeOctets(const std::wstring& address, int count) {
  std::size_t end = 0;
  for (int i = 0; i < count; ++i) end = address.find(L'.', end) + 1;
  return address.substr(0, end) + L"*";
}

std::wstring EntryFor(std::uint32_t address, std::uint32_t prefix) {
  if (prefix < 8) return {};
  std::wstring network = text::FormatIpv4(address & ~std::uint32_t{0} << (kMaxPrefix - prefix));
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

void Add(const Entries& entries, const ProxyOverrideStore& store) {
  if (const std::optional<std::wstring> text = store.read()) {
    Entries list = Split(*text);
    const std::size_t before = list.size();
    for (const std::wstring& entry : entries) {
      if (!Has(list, entry)) list.push_back(entry);
    }
    if (list.size() > before) store.write(text::Join(list, kSeparator));
  }
  for (const ProxyOverrideStore& other : store.others) Add(entries, other);
}

// Whether a list has changed.
bool Remove(const Entries& entries, const ProxyOverrideStore& store) {
  Entries list = Split(store.read().value_or(L""));  // nothing is taken off one that is not known
  bool changed =
      std::erase_if(list, [&](const std::wstring& entry) { return Has(entries, entry); }) > 0;
  if (changed) store.write(text::Join(list, kSeparator));
  for (const ProxyOverrideStore& other : store.others) changed |= Remove(entries, other);
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

std::wstring AddProxyBypass(const std::vector<std::wstring>& routes,
                            const ProxyOverrideStore& store) {
  const Entries entries = BypassEntriesForRoutes(routes);
  if (entries.empty()) return {};
  Add(entries, store);
  return kAdded + text::Join(entries, kSeparator);
}

std::wstring RemoveProxyBypass(const std::vector<std::wstring>& routes,
                               const ProxyOverrideStore& store) {
  const Entries entries = BypassEntriesForRoutes(routes);
  if (entries.empty() || !Remove(entries, store)) return {};
  return kRemoved + text::Join(entries, kSeparator);
}

}  // namespace diag
