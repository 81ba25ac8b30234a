// Input: four lines with a secret, a damaged settings text, a service's date, and a report or a
// service's reply. A redacted text contains no secret of the settings file, plain or encoded, and
// the year of every parsed date is between 0 and 9999.

#include <string>

#include "checks/secrets.h"
#include "checks/service_checks.h"
#include "fuzz_input.h"
#include "settings/json.h"
#include "text/strings.h"

namespace checks {
namespace {

using fuzz::Require;

void Run(fuzz::Input input) {
  const std::wstring secret = text::Trim(input.WideLine());
  const std::wstring damaged = input.WideLine();
  const std::wstring date = input.WideLine();
  const std::wstring report = input.WideLine();

  Secrets secrets;
  secrets.LearnFrom(damaged);
  secrets.LearnFrom(L"{\"deviceSecret\":" + settings::QuoteJsonString(secret) + L"}");
  const std::wstring shown =
      secrets.BlackOut(report + secret + date + text::PercentEncode(secret) + damaged);
  // Shorter secrets are kept inside words; one made of the marker's letters occurs in the marker.
  if (secret.size() >= 6 && secret.find_first_of(kHidden) == std::wstring::npos) {
    Require(text::FoldCase(shown).find(text::FoldCase(secret)) == std::wstring::npos);
  }
  if (const auto seconds = ParseHttpDate(date)) {
    Require(date.size() == 29 && *seconds >= -62167219200 && *seconds < 253402300801);
  }
  JudgeReply({200, date, report, {}});
  JudgeClock({200, date, {}, {}}, 0, {});
}

}  // namespace
}  // namespace checks

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  checks::Run(fuzz::Input(data, sizeBytes));
  return 0;
}
