// Input: a line of options (s: the saved path is a program, x: copying fails, e: the program closes
// during the request), a saved path, and the service's reply to the request for a remote desktop.
// Whatever the reply contains, only RustDesk is started, once, with the session's ID, and the
// password reaches only the clipboard and the window that asks for it.

#include <map>
#include <optional>
#include <stdexcept>

#include "fuzz_input.h"
#include "remote/rustdesk_program.h"
#include "service/api_messages.h"

namespace remote {
namespace {

using fuzz::Require;

constexpr std::uint64_t kWholeProgram = 20'000'000;

// The job's dependencies. Also parses the reply, to know which actions it allows.
class Desk : RemoteDesktopDeps {
 public:
  explicit Desk(fuzz::Input& input) {
    const std::string choices = input.Line();
    const auto has = [&](char choice) { return choices.find(choice) != std::string::npos; };
    canCopy_ = !has('x');
    isClosing_ = has('e');
    settings_.rustDeskPath = input.WideLine();
    if (has('s')) files_[settings_.rustDeskPath] = kWholeProgram;
    reply_ = text::FromUtf8(input.Rest());
    folders.programFiles = L"C:\\PF";
    folders.runtime = L"C:\\Runtime";
    closing = closing_.get_token();
  }

  void Run() {
    const std::wstring line = StartRemoteDesktop(settings_, *this);
    Require(!settings_.engineerId.empty());
    Require(isClosing_ || !line.empty());
    Require(!isPasted_ || isLaunched_);
    const std::optional<DesktopSession> session = Granted();
    if (!session) Require(!isLaunched_ && !isConfigured_ && !isCopied_);
    if (isLaunched_) CheckOpened(*session, line);
  }

 private:
  std::optional<DesktopSession> Granted() const {
    try {
      const service::ApiEnvelope envelope = service::ParseApiEnvelope(reply_);
      if (envelope.success) return ReadDesktopSession(envelope.data);
    } catch (const std::runtime_error&) {
      // No session.
    }
    return std::nullopt;
  }

  void CheckOpened(const DesktopSession& session, const std::wstring& line) const {
    const bool hasPassword = !session.accessPassword.empty();
    Require(isCopied_ == hasPassword && isPasted_ == (hasPassword && canCopy_));
    Require(isConfigured_ == (session.server && !session.server->rendezvousServer.empty()));
    const PasswordCopy copy = !hasPassword ? PasswordCopy::None
                              : canCopy_   ? PasswordCopy::Done
                                           : PasswordCopy::Failed;
    Require(line == DesktopOpenedText(session.rustDeskId, copy));
    Require(settings_.rustDeskPath == launchedPath_);
    IsRustDeskTitle(session.rustDeskId, session.accessPassword);
    if (!session.rustDeskId.empty()) {
      Require(IsRustDeskTitle(L"> " + session.rustDeskId, session.rustDeskId));
    }
  }

  service::HttpResponse SendJsonRequest(const std::wstring&, const std::wstring&,
                                        const std::wstring&) override {
    if (isClosing_) closing_.request_stop();
    return {200, reply_};
  }
  bool Download(const std::wstring& url, const std::wstring& path) override {
    Require(url.find(L"://") != std::wstring::npos && path.starts_with(folders.runtime));
    files_[path] = url.size() % 2 == 0 ? kWholeProgram : 10;
    return true;
  }
  void OnRequestFailed() override {}
  std::optional<std::uint64_t> SizeBytes(const std::wstring& path) override {
    const auto file = files_.find(path);
    if (file == files_.end()) return std::nullopt;
    return file->second;
  }
  bool CreateFolders(const std::wstring&) override { return true; }
  bool Delete(const std::wstring& path) override { return files_.erase(path) > 0; }
  std::vector<std::wstring> ListFolders(const std::wstring&) override {
    Require(!isConfigured_ && !isClosing_);
    isConfigured_ = true;
    return {};
  }
  void WriteConfigFile(const std::wstring&, const std::string&) override {
    Require(isConfigured_ && !isClosing_);
  }
  void Launch(const std::wstring& path, std::span<const std::wstring> arguments) override {
    Require(!isLaunched_ && !isClosing_ && files_.count(path) == 1);
    isLaunched_ = true;
    launchedPath_ = path;
    const std::wstring id = Granted()->rustDeskId;
    Require(arguments.size() == (id.empty() ? 0 : 2));
    Require(id.empty() || (arguments[0] == L"--connect" && arguments[1] == id));
  }
  bool CopyPassword(const std::wstring& password) override {
    Require(!isCopied_ && !isClosing_ && password == Granted()->accessPassword);
    isCopied_ = true;
    return canCopy_;
  }
  void StartPasswordPaste(const std::wstring& password, const std::wstring& id,
                          const std::wstring& startedPath) override {
    Require(startedPath == launchedPath_);
    Require(isLaunched_ && !isPasted_ && password == Granted()->accessPassword);
    Require(id == Granted()->rustDeskId);
    isPasted_ = true;
  }

  settings::Settings settings_;
  std::map<std::wstring, std::uint64_t> files_;
  std::wstring reply_;
  std::stop_source closing_;
  bool canCopy_ = false;
  bool isClosing_ = false;  // the program closes during the request
  bool isConfigured_ = false;
  bool isCopied_ = false;
  bool isLaunched_ = false;
  bool isPasted_ = false;
  std::wstring launchedPath_;
};

}  // namespace
}  // namespace remote

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  fuzz::Input input(data, sizeBytes);
  remote::Desk(input).Run();
  return 0;
}
