#include <algorithm>
#include <chrono>
#include <memory>
#include <utility>

#include "checks/client_checks.h"
#include "checks/computer_checks.h"
#include "checks/driver_checks.h"
#include "checks/network_checks.h"
#include "checks/real_checks.h"
#include "checks/service_checks.h"
#include "diag/proxy_note.h"
#include "platform/files.h"
#include "platform/path.h"
#include "platform/process_win.h"
#include "platform/safe_files.h"
#include "platform/signature.h"
#include "platform/system_error.h"
#include "platform/user_folders_win.h"
#include "settings/server_address.h"
#include "settings/settings_file.h"
#include "tunnel/driver/windivert.h"
#include "tunnel/relay/udp_datagram.h"
#include "update/update_check.h"
// After the SDK, which they need.
#include <objbase.h>
#include <shellapi.h>

namespace checks {
namespace {

constexpr wchar_t kBrowserFolder[] = L"VelmarineWebUI_Client";
// After the other checks: opening the driver changes the state of its service.
constexpr int kDriverStage = 1;

using Request = std::shared_ptr<const ReportRequest>;

// From the file; writes nothing.
settings::Settings ReadSettings(std::wstring* complaint = nullptr) {
  settings::Settings record;
  const std::wstring line = settings::RealSettingsFile().Load(record);
  if (complaint != nullptr) *complaint = line;
  return record;
}

std::wstring ServerUrl(const ReportRequest& request) {
  // Inside a client its own record counts, which the file may not have yet.
  return request.client ? request.client->serverUrl : ReadSettings().serverUrl;
}

std::string Sum(std::span<const std::byte> bytes) {
  return platform::Sha256Hex(bytes);
}

std::string Sum(const std::string& bytes) {
  return Sum(std::as_bytes(std::span(bytes.data(), bytes.size())));
}

std::vector<DriverFile> ReadDriverFiles(const ReportRequest& request) {
  std::vector<DriverFile> files;
  for (const ReportRequest::CarriedFile& carried : request.carriedFiles) {
    DriverFile file{
        platform::JoinPath(settings::RuntimeFolder(), carried.name), {}, {}, Sum(carried.bytes)};
    if (const auto bytes = platform::ReadFileBytes(file.path)) {
      file.sizeBytes = bytes->size();
      file.sha256 = Sum(*bytes);
    }
    files.push_back(std::move(file));
  }
  return files;
}

// Holds all files and compares them while they cannot change; null if one differs.
std::shared_ptr<void> HoldDriverFiles(const ReportRequest& request) {
  auto held = std::make_shared<std::vector<platform::HeldFile>>();
  for (const ReportRequest::CarriedFile& carried : request.carriedFiles) {
    platform::HeldFile file =
        platform::HoldFile(platform::JoinPath(settings::RuntimeFolder(), carried.name));
    if (!file.result.succeeded || Sum(file.bytes) != Sum(carried.bytes)) return nullptr;
    held->push_back(std::move(file));
  }
  return held;
}

bool IsDriverServiceThere() {
  const ServiceList list = ListDrivers();
  return std::ranges::any_of(list.drivers, IsWinDivertService, &ServiceFacts::name);
}

DriverDeps RealDriverDeps(const ReportRequest& request) {
  // In this order: held before anything is loaded, the service looked up before it may be created.
  return {HoldDriverFiles(request), IsDriverServiceThere(), tunnel::LoadWinDivert,
          request.isClientRunning, platform::RunHidden};
}

Outcome CheckFolders(const ReportRequest& request) {
  const std::wstring settingsFolder = platform::ParentFolder(settings::SettingsFilePath());
  return JudgeFolders({
      ProbeFolder(L"程序文件夹", platform::ProgramFolder()),
      ProbeFolder(L"日志文件夹", platform::JoinPath(request.workingFolder, L"Log")),
      ProbeFolder(L"设置文件夹", settingsFolder),
      ProbeFolder(L"运行目录", settings::RuntimeFolder()),
      ProbeFolder(L"界面数据文件夹", platform::TemporaryFolder() + kBrowserFolder),
  });
}

Outcome CheckNetworks() {
  NetworkFacts facts = ReadNetworkFacts();
  for (const settings::SiteProfile& profile : ReadSettings().siteProfiles) {
    facts.siteNetworks.insert(facts.siteNetworks.end(), profile.sharedNetworks.begin(),
                              profile.sharedNetworks.end());
  }
  return JudgeNetworks(facts);
}

Outcome CheckSettings(const ReportRequest& request) {
  SettingsFacts facts;
  facts.path = settings::SettingsFilePath();
  facts.exists = platform::IsFile(facts.path);
  const settings::Settings record = ReadSettings(&facts.complaint);
  facts.profiles = record.siteProfiles.size();
  facts.remembersConnection = !record.connectionId.empty();
  facts.damagedFiles = DamagedSettings(platform::ListFiles(platform::ParentFolder(facts.path)));
  diag::ProxyNote& note = diag::RealProxyNote();
  {
    const platform::MutexLock held(note.lock);
    facts.proxyNote = note.Read();
  }
  return JudgeSettings(facts, request.isClientRunning());
}

std::int64_t NowSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

Outcome CheckClock(const ReportRequest& request) {
  const HttpAnswer answer = Fetch(settings::NormaliseServerUrl(ServerUrl(request)) + L"/");
  return JudgeClock(answer, NowSeconds(), TimeZoneLine());
}

std::vector<Check> ComputerChecks(const Request& request) {
  return {
      {"program", L"程序文件", "The program's file can be read and is signed as its build demands.",
       [request] {
         return JudgeProgram(
             ReadProgramFacts(request->self.version, request->self.signerKeySha256));
       }},
      {"windows", L"Windows 与处理器", "Windows and the processor suit the program.",
       [] { return JudgeSystem(ReadSystemFacts()); }},
      {"rights", L"权限", "The program runs with an administrator's rights, on its user's desktop.",
       [] { return JudgeRights(ReadRightsFacts()); }},
      {"folders", L"文件夹", "The program's folders can be written to and have room.",
       [request] { return CheckFolders(*request); }},
      {"running", L"同时运行", "No other client runs on this computer.",
       [request] { return JudgeRunning(request->isClientRunning(), request->client.has_value()); }},
      {"settings", L"设置文件", "The settings can be read and nothing is left of a sudden end.",
       [request] { return CheckSettings(*request); }},
      {"webview2", L"WebView2 运行时", "A WebView2 runtime is installed that shows the page.",
       [] {
         return JudgeWebView(
             webview::ListInstalledRuntimes(webview::RegisteredRuntimeFolder, platform::IsFile));
       }},
      {"power", L"电源与睡眠", "No power setting ends a connection by itself.",
       [] { return JudgePower(ReadPowerFacts()); }},
  };
}

std::vector<Check> DriverChecks(const Request& request) {
  return {
      {"driver-files", L"驱动文件",
       "The packet driver's files lie in place as the program carries them.",
       [request] { return JudgeDriverFiles(ReadDriverFiles(*request)); }},
      {"driver-service", L"驱动服务", "No driver service is left over or in the way.",
       [request] {
         return JudgeDriverServices(ListDrivers(), settings::RuntimeFolder(),
                                    request->isClientRunning());
       }},
      {"driver-open", L"驱动打开与关闭", "The packet driver opens and closes.",
       [request] { return CheckDriverOpens(RealDriverDeps(*request)); }, kDriverStage},
      {"driver-checksums", L"驱动校验和", "The packet driver writes right checksums.",
       [request] { return CheckDriverSums(RealDriverDeps(*request)); }, kDriverStage},
  };
}

std::vector<Check> NetworkChecks(const Request& request) {
  return {
      {"networks", L"本机网段", "This computer's networks leave 172.31.0.0/16 and the sites alone.",
       CheckNetworks},
      {"proxy", L"代理", "No proxy stands between the program and the service.",
       [] { return JudgeProxies(ReadProxyFacts()); }},
      {"neighbours", L"VPN 与抓包软件", "No VPN is connected that could take the sites' networks.",
       [] { return JudgeNeighbours(ListDrivers(), tunnel::ListAdapters()); }},
      {"service-tcp", L"中心服务 TCP", "The central service takes TCP connections.",
       [request] { return CheckServiceTcp(ServerUrl(*request)); }},
      {"service-udp", L"中继 UDP", "The relay answers by UDP.",
       [request] { return CheckServiceUdp(ServerUrl(*request), tunnel::OpenRelaySocket); }},
      {"service-reply", L"中心服务的回答", "The central service answers in its own form.",
       [request] {
         return JudgeReply(
             Fetch(update::UpdateQuestion(ServerUrl(*request), request->self.version)));
       }},
      {"clock", L"时钟", "This computer's clock agrees with the service's.",
       [request] { return CheckClock(*request); }},
  };
}

// Replaces the file without following a link: the report's folder belongs to a user, who could
// place one there under the file's name.
class ReportFiles final : public platform::ComputerFiles {
 public:
  std::wstring Write(const std::wstring& path, const std::string& bytes) override {
    constexpr platform::OwnParts kOwnParts = 1;
    return platform::FailureReason(platform::WriteUnlinkedFile(path, kOwnParts, bytes));
  }
};

}  // namespace

ReportDeps RealReportDeps(const ReportRequest& request) {
  // Never destroyed: the report's detached thread may outlive main().
  static ReportFiles& files = *new ReportFiles;
  // Shared, because a check that is abandoned may still read it.
  const auto shared = std::make_shared<const ReportRequest>(request);
  ReportDeps deps;
  deps.version = request.self.version;
  deps.time = platform::LocalTimeNow();
  for (const std::vector<Check>& some :
       {ComputerChecks(shared), DriverChecks(shared), NetworkChecks(shared)}) {
    deps.checks.insert(deps.checks.end(), some.begin(), some.end());
  }
  deps.settingsFolder = platform::ParentFolder(settings::SettingsFilePath());
  if (request.client) {
    deps.secretTexts = {request.client->record};
    deps.logPath = request.client->logPath;
  }
  deps.logFolders = {request.workingFolder, platform::ProgramFolder()};
  // The desktop first, where the engineer finds it.
  deps.folders = {platform::DesktopFolder(), platform::TemporaryFolder()};
  deps.files = &files;
  deps.open = ShowFile;
  return deps;
}

void ShowFile(const std::wstring& path) {
  SHELLEXECUTEINFOW info{};
  info.cbSize = sizeof(info);
  info.fMask = SEE_MASK_NOASYNC | SEE_MASK_FLAG_NO_UI;  // this process or thread may end next
  info.lpVerb = L"open";
  info.lpFile = path.c_str();
  info.nShow = SW_SHOWNORMAL;
  // The program for this kind of file may be started through COM.
  const HRESULT entered =
      ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED | COINIT_DISABLE_OLE1DDE);
  ::ShellExecuteExW(&info);
  if (SUCCEEDED(entered)) ::CoUninitialize();
}

}  // namespace checks
