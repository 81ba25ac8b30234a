#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "diag/proxy_note.h"

// The networks of a connection on the current user's proxy bypass list, so that browsers and other
// programs reach the site through the tunnel and not through a web proxy, which does not know it.
// Where the desktop is another user's, those programs are his, and his list holds them, too.
//
// Threads: any; called on the worker thread that connects or disconnects, and on the window's at
// the
//          start. Between reading and writing a list only the note's lock guards it: another
//          program that edits it at that moment may lose.
namespace diag {

// The list as the system holds it: entries separated by ";".
struct ProxyListDeps {
  // Empty when there is none; nothing when it cannot be read, and is then to be left as it is.
  std::function<std::optional<std::wstring>()> read;
  std::function<bool(const std::wstring& list)> write;  // false when that failed
  std::function<void()> tell;  // lets running programs know that it was written; may take seconds
  std::wstring user = {};      // whose it is, as NotedList has it
  // Lists of other users, which are edited alike, each by itself; no text speaks of them.
  std::vector<ProxyListDeps> others = {};
};

// The current user's, in the registry, and that of the desktop's user where he is another one.
// Windows only.
ProxyListDeps RealProxyOverride();

// The list of the user with that SID, who must be signed in: otherwise it cannot be read and
// nothing is written. Windows only.
ProxyListDeps ProxyOverrideOf(const std::wstring& sid);

// The one list of `user`, as NotedList names him, whose programs are told on a thread that nobody
// waits for. Windows only.
ProxyListDeps LeftoverProxyOverride(const std::wstring& user);

// The entry for one route ("10.1.2.0/24" gives "10.1.2.*"): bypass entries know only "*" for whole
// bytes, so that a prefix between two bytes widens to the shorter one. Empty for a prefix below 8
// and for what is no route.
std::wstring RouteToBypassEntry(std::wstring_view route);

// The entries of all usable routes in their order; of equal ones, in any letter case, the first.
std::vector<std::wstring> BypassEntriesForRoutes(const std::vector<std::wstring>& routes);

// Appends the routes' entries that the list does not have yet, and notes them before; a list that
// cannot be read is not written, as that would replace what the user has there. Returns the line
// that names the routes' entries, written or not; empty when there are none.
std::wstring AddProxyBypass(const std::vector<std::wstring>& routes, const ProxyListDeps& store,
                            ProxyNote& note);

// Takes the routes' entries off the list, those too that were there before. Nothing is written
// where the list cannot be read. Returns the line that names them when a list has changed, else an
// empty text.
std::wstring RemoveProxyBypass(const std::vector<std::wstring>& routes, const ProxyListDeps& store,
                               ProxyNote& note);

// What a start does: takes the entries off that an ended run has noted and not taken off, one copy
// of each. An entry that was on a list before the program came to it was not noted, and stays; so
// does the note of a list that cannot be edited now. Returns the line that names what was taken
// off, empty for nothing.
std::wstring TakeOffLeftovers(ProxyNote& note,
                              const std::function<ProxyListDeps(const std::wstring& user)>& listOf);

}  // namespace diag
