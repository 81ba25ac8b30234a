#include "update/updater_start.h"

#include "update/quote_argument.h"

namespace update {
namespace {

constexpr wchar_t kCopySuffix[] = L".updater.exe";
constexpr wchar_t kMode[] = L" --apply-update ";

}  // namespace

std::wstring UpdaterCommandLine(std::wstring_view updater, std::uint32_t processId,
                                std::wstring_view downloadedPath, std::wstring_view programPath) {
  return QuoteArgument(updater) + kMode + QuoteArgument(std::to_wstring(processId)) + L" " +
         QuoteArgument(downloadedPath) + L" " + QuoteArgument(programPath);
}

bool StartUpdater(const std::wstring& downloadedPath, const UpdaterPorts& ports) {
  const std::wstring& self = ports.programPath;
  if (self.empty()) return false;
  const std::wstring copy = self + kCopySuffix;
  ports.copyOver(self, copy);
  const std::wstring& updater = ports.isFile(copy) ? copy : self;
  return ports.startHidden(UpdaterCommandLine(updater, ports.processId, downloadedPath, self));
}

}  // namespace update
