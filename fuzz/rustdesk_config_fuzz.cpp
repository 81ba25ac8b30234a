// Input: a line of user names, and the service's description of its RustDesk servers, any JSON
// text. A small reader of quoted values must find every value in the configuration, and each file
// is written once.

#include <map>
#include <set>
#include <stdexcept>
#include <vector>

#include "fuzz_input.h"
#include "remote/fake_computer.h"
#include "settings/json.h"
#include "text/strings.h"

namespace remote {
namespace {

using fuzz::Require;

// Takes one "name = 'value'" off the front of `text`; a backslash escapes the next character.
std::pair<std::wstring, std::wstring> TakeEntry(std::wstring_view& text) {
  const std::size_t nameEnd = text.find(L" = '");
  Require(nameEnd != std::wstring_view::npos);
  std::pair<std::wstring, std::wstring> entry{text.substr(0, nameEnd), L""};
  std::size_t at = nameEnd + 4;
  for (; at < text.size() && text[at] != L'\''; ++at) {
    if (text[at] == L'\\') ++at;
    Require(at < text.size());
    entry.second += text[at];
  }
  Require(text.substr(at, 2) == L"'\n");
  text.remove_prefix(at + 2);
  return entry;
}

std::map<std::wstring, std::wstring> ReadConfig(std::wstring_view text) {
  constexpr std::wstring_view kSection = L"\n[options]\n";
  std::map<std::wstring, std::wstring> values;
  values.insert(TakeEntry(text));
  Require(text.starts_with(kSection));
  text.remove_prefix(kSection.size());
  while (!text.empty()) Require(values.insert(TakeEntry(text)).second);
  return values;
}

void CheckConfig(const RustDeskServer& server) {
  const std::optional<std::wstring> config = ComposeRustDeskConfig(server);
  Require(config.has_value() != server.rendezvousServer.empty());
  if (!config) return;
  std::map<std::wstring, std::wstring> wanted = {
      {L"rendezvous_server", server.rendezvousServer},
      {L"custom-rendezvous-server", server.rendezvousServer},
      {L"relay-server", server.relayServer},
      {L"key", server.key},
  };
  if (!server.apiServer.empty()) wanted[L"api-server"] = server.apiServer;
  Require(ReadConfig(*config) == wanted);
}

// Every second file is another user's and cannot be written.
struct FilesOfUsers : FakeComputer {
  std::vector<std::wstring> ListFolders(const std::wstring&) override { return users; }
  void WriteConfigFile(const std::wstring& path, const std::string& bytes) override {
    Require(seen.insert(text::FoldCase(path)).second);
    Require(bytes == wanted);
    if (seen.size() % 2 == 0) throw std::runtime_error("another user's");
  }

  std::string wanted;
  std::set<std::wstring> seen;
};

void CheckFiles(const RustDeskServer& server, const std::vector<std::wstring>& users) {
  FilesOfUsers computer;
  computer.users = users;
  computer.wanted = text::ToUtf8(ComposeRustDeskConfig(server).value_or(L""));
  ConfigureRustDesk(server, computer);
  const std::size_t files = ListRustDeskConfigFiles(computer).size();
  Require(computer.seen.size() == (server.rendezvousServer.empty() ? 0 : files));
}

void Run(fuzz::Input input) {
  std::vector<std::wstring> users;
  std::string line = input.Line();
  std::ranges::replace(line, ';', '\n');
  users = text::SplitLines(text::FromUtf8(line));
  settings::JsonValue description;
  try {
    description = settings::ReadJsonDocument(text::FromUtf8(input.Rest()));
  } catch (const std::runtime_error&) {
    return;
  }
  const RustDeskServer server = ReadRustDeskServer(description);
  CheckConfig(server);
  CheckFiles(server, users);
}

}  // namespace
}  // namespace remote

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  remote::Run(fuzz::Input(data, sizeBytes));
  return 0;
}
