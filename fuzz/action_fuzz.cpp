#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "page/messages.h"
#include "settings/json.h"
#include "settings/settings.h"
#include "text/utf8.h"

// Any message that a page may post: handling it never throws, and whatever fields it sets, the
// program's own messages remain complete JSON documents.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto message = page::ParsePageMessage(text::FromUtf8(bytes));
  if (!message) return 0;

  settings::Settings settings;
  page::TakeFields(message->form.value_or(settings::JsonValue()), settings);
  for (const std::wstring& json :
       {page::BuildApplyMessage(settings), page::BuildStateMessage(settings, {}, message->action),
        page::BuildLogMessage({}, message->action)}) {
    std::size_t position = 0;
    settings::ReadJsonValue(json, position);
    if (position != json.size()) std::abort();
  }
  return 0;
}
