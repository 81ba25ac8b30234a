#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <vector>

#include "remote/password_keeper.h"
#include "remote/password_paste.h"
#include "remote/rustdesk_files.h"
#include "service/http_transport.h"
#include "settings/settings.h"

namespace remote {

// Everything that opening a desktop does to the computer: the program's own operations, or a fake
// in tests. Called on one thread.
class RemoteDesktopDeps {
 public:
  RustDeskFolders folders;
  std::stop_token closing;  // requested when the program ends: nothing is started from then on

  virtual ~RemoteDesktopDeps() = default;

  // The service, as in service/http_transport.h.
  virtual service::HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                                                const std::wstring& body) = 0;
  virtual bool Download(const std::wstring& url, const std::wstring& target) = 0;
  // The returned line will quote a failure of the request, not the service's own words.
  virtual void OnRequestFailed() = 0;

  // Files, as in platform/files.h.
  virtual std::optional<std::uint64_t> SizeBytes(const std::wstring& path) = 0;
  virtual bool CreateFolders(const std::wstring& folder) = 0;
  virtual bool Delete(const std::wstring& path) = 0;
  virtual std::vector<std::wstring> ListFolders(const std::wstring& folder) = 0;
  // Creates the file's folder, too. Must not follow links that a user could have made.
  virtual void WriteConfigFile(const std::wstring& path, const std::string& bytes) = 0;

  virtual void Launch(const std::wstring& exePath, std::span<const std::wstring> arguments) = 0;
  virtual bool CopyPassword(const std::wstring& password) = 0;
  // Returns at once. Throws std::system_error when no thread can be created.
  virtual void StartPasswordPaste(const std::wstring& password, const std::wstring& rustDeskId,
                                  const std::wstring& startedPath) = 0;
};

// The one keeper of the program's sessions, over the system's clipboard. End() must be called
// before the program ends. Windows only.
std::shared_ptr<PasswordKeeper> MakePasswordKeeper();

// The program's own operations for one desktop. Creating them begins its session, which ends the
// pasting of every earlier one. Windows only.
class RealRemoteDesktopDeps : public RemoteDesktopDeps {
 public:
  // `whenClosing` ends requests and downloads. `notice` receives a line for the engineer's log on
  // the pasting thread, at any time until the process ends.
  RealRemoteDesktopDeps(const std::shared_ptr<PasswordKeeper>& keeper,
                        const std::stop_token& whenClosing, PasteNotice notice);

  service::HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                                        const std::wstring& body) override;
  bool Download(const std::wstring& url, const std::wstring& target) override;
  void OnRequestFailed() override {}
  std::optional<std::uint64_t> SizeBytes(const std::wstring& path) override;
  bool CreateFolders(const std::wstring& folder) override;
  bool Delete(const std::wstring& path) override;
  std::vector<std::wstring> ListFolders(const std::wstring& folder) override;
  void WriteConfigFile(const std::wstring& path, const std::string& bytes) override;
  void Launch(const std::wstring& exePath, std::span<const std::wstring> arguments) override;
  bool CopyPassword(const std::wstring& password) override;
  void StartPasswordPaste(const std::wstring& password, const std::wstring& rustDeskId,
                          const std::wstring& startedPath) override;

 private:
  const PasteTurn turn_;
  const PasteNotice notice_;
};

// Asks the service for a desktop session of the settings' device, finds and configures RustDesk,
// starts it with the session's ID, copies the password to the clipboard and has it pasted into
// RustDesk's window. Returns the line for the log, which never contains the password; a refusal or
// failure of the service is such a line too. Sets engineerId if the settings have none, and
// rustDeskPath once RustDesk was started, whether or not its window appeared. Throws
// std::system_error when a thread cannot be created. Blocks, for minutes if RustDesk is downloaded;
// any thread. Once the program is closing it copies and starts nothing, and the line is discarded.
std::wstring StartRemoteDesktop(settings::Settings& settings, RemoteDesktopDeps& deps);

}  // namespace remote
