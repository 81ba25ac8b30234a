#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "diag/proxy_note.h"

// Puts a connection's networks on the current user's proxy bypass list, so that browsers and other
// programs reach the site through the tunnel instead of a web proxy that does not know it. If the
// desktop belongs to another user, so do those programs, and that user's list is edited, too.
//
// Threads: any; called on the worker thread that connects or disconnects, and at the start on the
//          window's. Between reading and writing a list only the note's lock guards it: a change by
//          another program in that moment may be lost.
namespace diag {

// A user's list as the system stores it: entries separated by ";".
struct ProxyListDeps {
  // Empty text: no list. Empty optional: the list cannot be read and must not be written.
  std::function<std::optional<std::wstring>()> read;
  std::function<bool(const std::wstring& list)> write;  // false on failure
  std::function<void()> announce;  // notifies running programs of a change; may take seconds
  std::wstring user = {};          // as in NotedList
  // Other users' lists, edited in the same way but independently; log lines do not mention them.
  std::vector<ProxyListDeps> others = {};
};

// The current user's list in the registry, and the desktop user's if that is another one. Windows
// only.
ProxyListDeps RealProxyOverride();

// The list of the user with that SID; cannot be read or written unless that user is signed in.
// Windows only.
ProxyListDeps ProxyOverrideOf(const std::wstring& sid);

// The list of `user`, as in NotedList, announced on a detached thread. Windows only.
ProxyListDeps LeftoverProxyOverride(const std::wstring& user);

// The entry for one route: "10.1.2.0/24" gives "10.1.2.*". The list's "*" stands for whole bytes,
// so a prefix between two bytes widens to the shorter one. Empty for a prefix below 8 and for other
// text.
std::wstring RouteToBypassEntry(std::wstring_view route);

// The entries of all valid routes in their order, each once in any letter case.
std::vector<std::wstring> BypassEntriesForRoutes(const std::vector<std::wstring>& routes);

// Notes and then appends the routes' missing entries. Does not write a list that cannot be read:
// that would replace the user's own entries. Returns the log line with the routes' entries, written
// or not; empty without entries.
std::wstring AddProxyBypass(const std::vector<std::wstring>& routes, const ProxyListDeps& list,
                            ProxyNote& note);

// Removes the routes' entries, including those that were there before. Returns the log line with
// them if a list has changed, else an empty text.
std::wstring RemoveProxyBypass(const std::vector<std::wstring>& routes, const ProxyListDeps& list,
                               ProxyNote& note);

// At the start: removes the entries that an earlier run noted and did not remove, one copy of each.
// Entries that were on the list before the program added its own are not noted and stay. Keeps the
// note of a list that cannot be edited now. Returns the log line with the removed entries, empty
// without any.
std::wstring RemoveLeftovers(ProxyNote& note,
                             const std::function<ProxyListDeps(const std::wstring& user)>& listOf);

}  // namespace diag
