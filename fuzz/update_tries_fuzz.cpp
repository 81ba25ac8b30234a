// Any text as the record of the last update: a record that was read must survive writing and
// reading.

#include "fuzz_input.h"
#include "text/utf8.h"
#include "update/update_records.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  const std::string bytes(reinterpret_cast<const char*>(data), sizeBytes);
  const auto record = update::ParseUpdateTry(text::FromUtf8(bytes));
  if (!record) return 0;
  fuzz::Require(!record->version.empty() && record->atSeconds >= 0);
  const auto again = update::ParseUpdateTry(update::UpdateTryText(*record));
  fuzz::Require(again && again->version == record->version &&
                again->atSeconds == record->atSeconds);
  return 0;
}
