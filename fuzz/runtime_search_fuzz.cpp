// Input: the registered WebView2 runtimes, one per line ("-": none, leading "!": the library is
// missing), channel by channel, all users' before the current user's. The search must return the
// first usable runtime, as a simple second search does.

#include <vector>

#include "fuzz_input.h"
#include "webview/runtime_search.h"

namespace webview {
namespace {

using fuzz::Require;

constexpr std::size_t kPlaces = 10;  // five channels under two roots

// The version in the last part of a path: four numbers of one to nine digits.
std::optional<RuntimeVersion> PlainVersion(std::wstring folder) {
  while (!folder.empty() && (folder.back() == L'\\' || folder.back() == L'/')) folder.pop_back();
  const std::size_t slash = folder.find_last_of(L"\\/");
  std::wstring rest = slash == std::wstring::npos ? folder : folder.substr(slash + 1);
  rest += L'.';
  RuntimeVersion version{};
  for (std::uint32_t& number : version) {
    const std::size_t end = rest.find(L'.');
    if (end == std::wstring::npos || end < 1 || end > 9) return std::nullopt;
    if (rest.find_first_not_of(L"0123456789") != end) return std::nullopt;
    number = static_cast<std::uint32_t>(std::stoul(rest.substr(0, end)));
    rest.erase(0, end + 1);
  }
  return rest.empty() ? std::optional(version) : std::nullopt;
}

struct Place {
  std::wstring channel;  // set when it is first looked up
  RuntimeRoot root = RuntimeRoot::AllUsers;
  std::optional<std::wstring> folder;
  bool hasLibrary = true;
};

std::optional<std::wstring> PlainFind(const std::vector<Place>& places) {
  for (const Place& place : places) {
    const auto version = PlainVersion(place.folder.value_or(L""));
    if (!version || *version < RuntimeVersion{86, 0, 616, 0}) continue;
    // Several places may name one folder; the library is missing for all of them or for none.
    const bool isMissing = std::ranges::any_of(places, [&](const Place& other) {
      return !other.hasLibrary && other.folder &&
             RuntimeLibraryPath(*other.folder) == RuntimeLibraryPath(*place.folder);
    });
    if (!isMissing) return RuntimeLibraryPath(*place.folder);
  }
  return std::nullopt;
}

void Run(fuzz::Input input) {
  std::vector<Place> places(kPlaces);
  for (std::size_t i = 0; i < kPlaces; ++i) {
    places[i].root = i < kPlaces / 2 ? RuntimeRoot::AllUsers : RuntimeRoot::CurrentUser;
    std::wstring line = input.WideLine();
    if (line == L"-") continue;
    places[i].hasLibrary = !line.starts_with(L'!');
    places[i].folder = line.substr(places[i].hasLibrary ? 0 : 1);
  }
  std::size_t asked = 0;
  const auto registered = [&](RuntimeRoot root, std::wstring_view channel) {
    Require(asked < kPlaces && places[asked].root == root);
    Require(asked < kPlaces / 2 || places[asked - kPlaces / 2].channel == channel);
    places[asked].channel = channel;
    return places[asked++].folder;
  };
  const auto fileExists = [&](const std::wstring& path) {
    return std::ranges::none_of(places, [&](const Place& place) {
      return !place.hasLibrary && RuntimeLibraryPath(*place.folder) == path;
    });
  };
  Require(FindInstalledRuntime(registered, fileExists) == PlainFind(places));
}

}  // namespace
}  // namespace webview

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  webview::Run(fuzz::Input(data, sizeBytes));
  return 0;
}
