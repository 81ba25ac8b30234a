#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "settings/json.h"
#include "settings/settings.h"
#include "text/utf8.h"
#include "webui/actions.h"
#include "webui/messages.h"

// What a page may post: it never throws, and whatever fields it sets, the program's own messages
// stay whole JSON documents.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto message = webui::ParsePageMessage(text::FromUtf8(bytes));
  if (!message) return 0;

  settings::Settings settings;
  webui::TakeFields(message->form.value_or(settings::JsonValue()), settings);
  for (const std::wstring& json :
       {webui::BuildApplyMessage(settings), webui::BuildStateMessage(settings, {}, message->action),
        webui::BuildLogMessage({}, message->action)}) {
    std::size_t position = 0;
    settings::ReadJsonValue(json, position);
    if (position != json.size()) std::abort();
  }
  return 0;
}
