#pragma once

#include <span>
#include <string>
#include <string_view>

#include "remote/remote_desktop.h"

// RustDesk on this computer: finding or fetching its program, pointing it at the service's servers,
// starting it, and recognising its window.
namespace remote {

// The path of an existing program file: rustDeskPath, unless that is in the runtime folder; else
// one of the usual places; else the result of DownloadRustDesk(). Empty when there is none.
// `server` is null when the service names no servers. May take minutes.
std::wstring FindRustDesk(settings::Settings& settings, const RustDeskServer* server,
                          RemoteDesktopDeps& deps);

// Downloads the program into the runtime folder, stores its path in rustDeskPath and returns it. If
// rustDeskPath names a file of more than 1 MiB, that one is used without asking the network. Empty
// when the service names no address, or when the file then in the runtime folder is not larger than
// 1 MiB; that file remains.
std::wstring DownloadRustDesk(settings::Settings& settings, const RustDeskServer* server,
                              RemoteDesktopDeps& deps);

// Every configuration file that this computer may have: RustDeskConfigFiles() for all its users.
std::vector<std::wstring> ListRustDeskConfigFiles(RemoteDesktopDeps& deps);

// Replaces every configuration file, in UTF-8 without a byte-order mark. Does nothing without a
// rendezvous server. A file that cannot be written, usually another user's, is skipped.
void ConfigureRustDesk(const RustDeskServer& server, RemoteDesktopDeps& deps);

// A command line's arguments: each in double quotes and otherwise unchanged, even if it contains
// quotes; separated by blanks. Pure.
std::wstring JoinArguments(std::span<const std::wstring> arguments);

// Starts the program through the shell, in a normal window. Fire and forget: failures are not
// reported, the engineer sees whether a window appears. Windows only; any thread.
void LaunchProgram(const std::wstring& exePath, std::span<const std::wstring> arguments);

// Whether a window with this title may be the one in which RustDesk asks for the password: the
// title contains the ID (letter case counts) or "rustdesk" in any letter case. Pure.
bool IsRustDeskTitle(std::wstring_view title, std::wstring_view rustDeskId);

// Whether a process with this image is RustDesk: a file of its name, or the one that was started.
// False for an empty path. Pure.
bool IsRustDeskImage(std::wstring_view imagePath, std::wstring_view startedPath);

// A visible window without an owner.
struct DeskWindow {
  void* handle = nullptr;
  std::wstring title;
  std::wstring imagePath;  // of its process; empty if the process may not be queried
};

// The window for the password among `windows`, which are in the system's order. Of those with a
// matching title the first that belongs to RustDesk, or else the first: a browser tab or folder
// with such a title is chosen only while RustDesk has no such window. Null for none. Pure.
void* ChooseRustDeskWindow(std::span<const DeskWindow> windows, std::wstring_view rustDeskId,
                           std::wstring_view startedPath);

}  // namespace remote
