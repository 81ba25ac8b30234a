// Any bytes as the settings file's text: taken or refused, and what was taken is written so that
// reading it again gives the same.

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
  // An address of slashes and blanks only changes each time it is normalised; any other settles.
  taken.serverUrl = settings::DefaultServerUrl();
  const std::wstring written = settings::WriteSettingsText(taken);
  settings::Settings again;
  settings::ReadSettingsText(written, again);
  Require(settings::WriteSettingsText(again) == written);
  return 0;
}
