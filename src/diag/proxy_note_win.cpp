#include "diag/proxy_note.h"
#include "platform/path.h"
#include "settings/settings_file.h"

namespace diag {

// Never destroyed: the end of the session may still be at it when the process ends.
ProxyNote& RealProxyNote() {
  static ProxyNote& note =
      *new ProxyNote(platform::JoinPath(platform::ParentFolder(settings::SettingsFilePath()),
                                        L"Client.proxy.json"),
                     platform::RealFiles());
  return note;
}

}  // namespace diag
