#pragma once

#include <string>
#include <vector>

#include "settings/json.h"

namespace settings {

struct Settings;

// A connection as the service granted it: what it takes to end it and to undo what it did, whatever
// is loaded into the form meanwhile.
struct GrantedConnection {
  std::wstring connectionId;
  std::wstring serverUrl;            // of the service that granted it
  std::wstring engineerId;           // who asked for it
  std::vector<std::wstring> routes;  // as granted, on the proxy list

  friend bool operator==(const GrantedConnection&, const GrantedConnection&) = default;
};

// The connection that `settings` hold. Where they name one without the grant that belongs to it (a
// file of an earlier version), its service, engineer and routes are those of the other fields.
GrantedConnection ConnectionInForce(const Settings& settings);

// The form in which it lies beside the settings file: one JSON object in one line.
std::wstring WriteGrantedConnection(const GrantedConnection& granted);

// Members of other kinds are empty.
GrantedConnection ReadGrantedConnection(const JsonValue& document);

}  // namespace settings
