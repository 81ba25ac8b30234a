// Any bytes as the settings file's text, which is accepted or refused. Accepted settings survive
// writing and reading.

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "fuzz_input.h"
#include "settings/server_address.h"
#include "settings/settings.h"
#include "text/utf8.h"

using fuzz::Require;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text =
      text::FromMarkedBytes(std::string_view(reinterpret_cast<const char*>(data), size));
  settings::Settings taken;
  const std::wstring untouched = settings::WriteSettingsText(taken);
  try {
    settings::ReadSettingsText(text, taken);
  } catch (const std::runtime_error&) {
    Require(settings::WriteSettingsText(taken) == untouched && taken.engineerId.empty());
    return 0;
  }
  Require(!taken.engineerId.empty());
  // Only an address of nothing but slashes and blanks changes each time it is normalised.
  taken.serverUrl = settings::DefaultServerUrl();
  const std::wstring written = settings::WriteSettingsText(taken);
  settings::Settings again;
  settings::ReadSettingsText(written, again);
  Require(settings::WriteSettingsText(again) == written);
  return 0;
}
