#include "settings/granted_connection.h"

#include "settings/settings.h"
#include "text/strings.h"

namespace settings {

GrantedConnection ConnectionInForce(const Settings& settings) {
  if (!settings.connectionId.empty() && settings.granted.connectionId == settings.connectionId) {
    return settings.granted;
  }
  return {settings.connectionId, settings.serverUrl, settings.engineerId,
          text::SplitLines(settings.routesText)};
}

std::wstring WriteGrantedConnection(const GrantedConnection& granted) {
  return L"{\"connectionId\":" + QuoteJsonString(granted.connectionId) +  //
         L",\"serverUrl\":" + QuoteJsonString(granted.serverUrl) +        //
         L",\"engineerId\":" + QuoteJsonString(granted.engineerId) +      //
         L",\"routes\":" + WriteJsonStrings(granted.routes) + L"}\n";
}

GrantedConnection ReadGrantedConnection(const JsonValue& document) {
  return {JsonStringOrEmpty(document, L"connectionId"), JsonStringOrEmpty(document, L"serverUrl"),
          JsonStringOrEmpty(document, L"engineerId"), JsonStringsOf(document, L"routes")};
}

}  // namespace settings
