#include "diag/proxy_note.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <utility>

#include "settings/json.h"
#include "text/strings.h"
#include "text/utf8.h"

namespace diag {
namespace {

using Entries = std::vector<std::wstring>;

constexpr wchar_t kLists[] = L"lists";
constexpr wchar_t kUser[] = L"user";
constexpr wchar_t kEntries[] = L"entries";

bool IsNoted(const Entries& entries, const std::wstring& entry) {
  return std::ranges::any_of(
      entries, [&](const std::wstring& other) { return text::EqualsIgnoreCase(other, entry); });
}

std::vector<NotedList> ReadLists(const settings::JsonValue& document) {
  std::vector<NotedList> lists;
  const settings::JsonValue* const member = settings::FindJsonMember(document, kLists);
  const settings::JsonArray* const array = member == nullptr ? nullptr : member->AsArray();
  if (array == nullptr) return lists;
  for (const settings::JsonValue& list : *array) {
    const std::wstring* const user = settings::FindJsonString(list, kUser);
    Entries entries = settings::JsonStringsOf(list, kEntries);
    if (user != nullptr && !entries.empty()) lists.push_back({*user, std::move(entries)});
  }
  return lists;
}

std::wstring WriteLists(const std::vector<NotedList>& lists) {
  std::wstring text;
  for (const NotedList& list : lists) {
    text.append(text.empty() ? L"" : L",").append(L"{\"user\":");
    text.append(settings::QuoteJsonString(list.user)).append(L",\"entries\":");
    text.append(settings::WriteJsonStrings(list.entries)).append(L"}");
  }
  return L"{\"lists\":[" + text + L"]}\n";
}

}  // namespace

std::vector<NotedList> ProxyNote::Read() const {
  const std::optional<std::string> bytes = files_.Read(path_).bytes;
  if (!bytes) return {};
  try {
    return ReadLists(settings::ReadJsonDocument(text::FromUtf8(*bytes)));
  } catch (const std::runtime_error&) {
    // Damaged or cut short: no entry in it can be trusted.
    return {};
  }
}

void ProxyNote::Remember(const std::wstring& user, const Entries& entries) {
  std::vector<NotedList> lists = Read();
  auto own = std::ranges::find(lists, user, &NotedList::user);
  if (own == lists.end()) own = lists.insert(lists.end(), {user, {}});
  for (const std::wstring& entry : entries) {
    if (!IsNoted(own->entries, entry)) own->entries.push_back(entry);
  }
  Write(lists);
}

void ProxyNote::Forget(const std::wstring& user, const Entries& entries) {
  const std::vector<NotedList> before = Read();
  std::vector<NotedList> lists = before;
  for (NotedList& list : lists) {
    if (list.user != user) continue;
    std::erase_if(list.entries, [&](const std::wstring& one) { return IsNoted(entries, one); });
  }
  std::erase_if(lists, [](const NotedList& list) { return list.entries.empty(); });
  // Without a change the disk is not touched.
  if (lists != before) Write(lists);
}

void ProxyNote::Write(const std::vector<NotedList>& lists) {
  if (lists.empty()) return files_.Delete(path_);
  // Without its note an entry may be left over, but the connection works.
  static_cast<void>(files_.Write(path_, text::ToUtf8(WriteLists(lists))));
}

}  // namespace diag
