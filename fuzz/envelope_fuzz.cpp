#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>

#include "service/api_messages.h"
#include "text/utf8.h"

// A reply of the service, from its bytes to the granted connection: any bytes are either read or
// throw one of the fixed texts.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t sizeBytes) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), sizeBytes);
  try {
    const service::ApiEnvelope envelope = service::ParseApiEnvelope(text::FromUtf8(bytes));
    service::IsServiceRefusalCode(envelope.code);
    if (envelope.success) service::ReadConnectionGrant(envelope.data);
  } catch (const std::runtime_error&) {
  }
  return 0;
}
