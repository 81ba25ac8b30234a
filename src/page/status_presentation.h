#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "settings/settings.h"

// Presents the program's state: colour classes, cards, the side panel, the list of target networks.
// Pure; any thread.
namespace page {

// A colour of the page.
enum class StatusClass { Plain, Ok, Warning, Error, Off };

// The page's name of the class: "", "ok", "wn", "er" or "off".
std::wstring_view ClassName(StatusClass statusClass) noexcept;

// The colour of a status line, by its words; the first match wins: a leading "Error" or a word of
// failure, then a word of warning, then a word of success. Never Off.
StatusClass ClassifyStatus(std::wstring_view text);

// One key and value in the side panel.
struct Card {
  std::wstring key;
  std::wstring value;
  StatusClass statusClass = StatusClass::Plain;
};

// The tunnel's state at one moment.
struct TunnelStatus {
  bool running = false;         // the session is started
  bool relayConnected = false;  // its link to the relay is up
};

struct SidePanel {
  bool online = false;  // started and linked
  std::wstring state;
  std::wstring detail;
};

// The networks as this computer reaches them: the mappings, else the access routes, else the
// granted routes, else nothing.
std::wstring AccessText(const settings::Settings& settings);

// The five cards, always in the same order.
std::vector<Card> StatusCards(const settings::Settings& settings);

SidePanel DescribeTunnel(const settings::Settings& settings, const TunnelStatus& tunnel);

// The choices of the target field: "自动", then the known networks.
std::vector<std::wstring> TargetList(const settings::Settings& settings);

// The target as the page shows it: "自动" stands for an empty text and for "ALL".
std::wstring ShownTarget(std::wstring_view targetNetwork);

// The target field's name for settings::kAllNetworks.
inline constexpr std::wstring_view kAutomaticTarget = L"自动";

}  // namespace page
