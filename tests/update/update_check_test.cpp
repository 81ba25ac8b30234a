#include "update/update_check.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "update/apply_update.h"
#include "update/idle_update_deps.h"

namespace update {
namespace {

constexpr wchar_t kTarget[] = L"C:\\Temp\\Velmarine.Client.update.exe";
using Texts = std::vector<std::wstring>;

class UpdateCheckTest : public testing::Test, protected IdleUpdateDeps {
 protected:
  UpdateCheckTest() {
    settings_.serverUrl = L"http://192.0.2.10:31080";
    programPath = L"D:\\Client.exe";
    downloadTarget = kTarget;
    closing = closing_.get_token();
  }

  service::HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                                        const std::wstring& body) override {
    events_.push_back(method + L" " + url + L" " + body);
    if (!transportError_.empty()) throw std::runtime_error(transportError_);
    return {status_, reply_};
  }
  bool Download(const std::wstring& url, const std::wstring& target) override {
    events_.push_back(L"download " + url + L" > " + target);
    if (closesInDownload_) closing_.request_stop();
    return downloads_;
  }
  platform::SystemResult ProbeReplacement(const std::wstring& replacement) override {
    const int sizeBytes = replacement == kTarget ? 1234 : 0;
    events_.push_back(L"probe " + std::to_wstring(sizeBytes));
    return sizeBytes == 0 ? replaceable_ : replaceableByDownload_;
  }
  std::wstring WhyNotTrusted(const std::wstring& path, const platform::HeldFile*) override {
    events_.push_back(L"trust " + path);
    return distrust_;
  }
  std::int64_t NowSeconds() override { return nowSeconds_; }
  std::optional<UpdateTry> LastTry() override { return lastTry_; }
  bool KeepTry(const UpdateTry& record) override {
    events_.push_back(L"keep " + record.version + L" at " + std::to_wstring(record.atSeconds));
    if (keepsTry_) lastTry_ = record;
    return keepsTry_;
  }
  platform::SystemResult StartHidden(const std::wstring& commandLine) override {
    const bool isUpdater = commandLine == UpdaterCommandLine(programPath + L".updater.exe",
                                                             processId, kTarget, programPath);
    events_.push_back(isUpdater ? L"start updater " + downloadTarget : L"start " + commandLine);
    return {starts_, 0};
  }
  void Remove(const std::wstring& path) override { events_.push_back(L"delete " + path); }
  void EndProcess() override { events_.push_back(L"end"); }

  // Returns the check's line for this reply.
  std::wstring Check(const std::wstring& reply) {
    reply_ = reply;
    events_.clear();
    currentVersion = current_;
    return CheckForUpdate(settings_, *this);
  }
  // For a successful reply with this payload.
  std::wstring CheckData(const std::wstring& data) {
    return Check(L"{\"success\":true,\"data\":" + data + L"}");
  }
  // For an offer of `version` at `url`.
  std::wstring Offer(const std::wstring& version, const std::wstring& url, bool force = true) {
    return CheckData(L"{\"updateAvailable\":true,\"version\":\"" + version +
                     L"\",\"downloadUrl\":\"" + url + L"\",\"force\":" +
                     (force ? L"true" : L"false") + L"}");
  }
  // The actions after the request.
  [[nodiscard]] Texts Actions() const { return {events_.begin() + 1, events_.end()}; }

  const std::wstring question_ =
      L"GET http://192.0.2.10:31080/api/updates/client?currentVersion=1.0.4 ";
  settings::Settings settings_;
  std::wstring current_ = L"1.0.4";
  std::uint32_t status_ = 200;
  std::wstring reply_;
  std::string transportError_;  // empty: the request succeeds
  std::stop_source closing_;
  bool closesInDownload_ = false;
  bool downloads_ = true;
  bool starts_ = true;
  platform::SystemResult replaceable_{true, 0};
  platform::SystemResult replaceableByDownload_{true, 0};
  std::wstring distrust_;
  std::int64_t nowSeconds_ = 1'800'000'000;
  std::optional<UpdateTry> lastTry_;
  bool keepsTry_ = true;
  Texts events_;
};

TEST_F(UpdateCheckTest, AsksOnceWithItsVersion) {
  CheckData(L"{}");
  EXPECT_EQ(events_, Texts{question_});
}

TEST_F(UpdateCheckTest, AsksAtTheNormalisedAddressWithTheVersionEncoded) {
  settings_.serverUrl = L" 10.1.2.3:8080\\ ";
  current_ = L"1.0.4 β/+~_-";
  CheckData(L"{}");
  EXPECT_EQ(events_, Texts{L"GET http://10.1.2.3:8080/api/updates/client"
                           L"?currentVersion=1.0.4%20%CE%B2%2F%2B~_- "});
}

TEST_F(UpdateCheckTest, ReportsARefusal) {
  const struct {
    const wchar_t* reply;
    const wchar_t* wanted;
  } rows[] = {
      {L"{\"success\":false,\"code\":\"X\",\"message\":\"暂停服务\"}",
       L"自动更新检查失败：暂停服务"},
      {L"{\"success\":false,\"code\":\"X\"}", L"自动更新检查失败："},
      {L"{\"success\":\"true\",\"data\":{\"updateAvailable\":true}}", L"自动更新检查失败："},
      {L"<html><body>Bad Gateway</body></html>", L"自动更新检查失败："},
      {L"", L"自动更新检查失败："},
      {L"[1,2]", L"自动更新检查失败："},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Check(row.reply), row.wanted) << row.reply;
    EXPECT_EQ(events_, Texts{question_}) << row.reply;
  }
}

TEST_F(UpdateCheckTest, ReadsTheReplyWhateverItsStatus) {
  status_ = 500;
  EXPECT_EQ(CheckData(L"{}"), L"当前已是最新版本：1.0.4");
}

TEST_F(UpdateCheckTest, LeavesFailuresToTheCaller) {
  EXPECT_THROW(Check(L"{\"success\":true,"), std::runtime_error);
  transportError_ = "WinHttpReceiveResponse failed.";
  EXPECT_THROW(CheckForUpdate(settings_, *this), std::runtime_error);
}

TEST_F(UpdateCheckTest, IsUpToDateUnlessAnUpdateIsActuallyOffered) {
  for (const wchar_t* data :
       {L"null", L"{}", L"[]", L"7", L"\"x\"", L"{\"updateAvailable\":false}",
        L"{\"updateAvailable\":\"true\"}", L"{\"updateAvailable\":1}",
        L"{\"UpdateAvailable\":true}",
        L"{\"updateAvailable\":false,\"version\":\"9\",\"downloadUrl\":\"/x\",\"force\":true}"}) {
    EXPECT_EQ(CheckData(data), L"当前已是最新版本：1.0.4") << data;
    EXPECT_EQ(events_, Texts{question_}) << data;
  }
  EXPECT_EQ(Check(L"{\"success\":true}"), L"当前已是最新版本：1.0.4");
}

TEST_F(UpdateCheckTest, RefusesAnOfferThatNamesNoNewerVersionOrNoAddress) {
  for (const wchar_t* data : {
           L"{\"updateAvailable\":true}",
           L"{\"updateAvailable\":true,\"downloadUrl\":\"/x\",\"force\":true}",
           L"{\"updateAvailable\":true,\"version\":\"\",\"downloadUrl\":\"/x\",\"force\":true}",
           L"{\"updateAvailable\":true,\"version\":2,\"downloadUrl\":\"/x\",\"force\":true}",
           L"{\"updateAvailable\":true,\"version\":\"2.0\",\"force\":true}",
           L"{\"updateAvailable\":true,\"version\":\"2.0\",\"downloadUrl\":\"\",\"force\":true}",
           L"{\"updateAvailable\":true,\"version\":\"2.0\",\"downloadUrl\":[],\"force\":true}",
       }) {
    EXPECT_EQ(CheckData(data), L"自动更新信息无效。") << data;
    EXPECT_EQ(events_, Texts{question_}) << data;
  }
  for (const wchar_t* version : {L"1.0.4", L"1.0.3", L"0.9", L"1", L"no number"}) {
    EXPECT_EQ(Offer(version, L"/x"), L"自动更新信息无效。") << version;
    EXPECT_EQ(Offer(version, L"/x", false), L"自动更新信息无效。") << version;
  }
}

TEST_F(UpdateCheckTest, ReportsAnOptionalOfferAndDoesNothing) {
  const std::wstring wanted =
      L"发现新版本 1.0.10，当前版本 1.0.4。后台未设置强制更新，本次暂不自动覆盖。";
  EXPECT_EQ(Offer(L"1.0.10", L"/x", false), wanted);
  EXPECT_EQ(events_, Texts{question_});
  for (const wchar_t* force : {L"\"true\"", L"1", L"null", L"{}"}) {
    EXPECT_EQ(CheckData(L"{\"updateAvailable\":true,\"version\":\"1.0.10\",\"downloadUrl\":\"/x\","
                        L"\"force\":" +
                        std::wstring(force) + L"}"),
              wanted)
        << force;
    EXPECT_EQ(events_, Texts{question_}) << force;
  }
}

TEST_F(UpdateCheckTest, InstallsAForcedOfferAndEndsTheProcess) {
  const std::wstring target = kTarget;
  EXPECT_EQ(Offer(L"1.0.10", L"updates/client.exe"), L"");
  EXPECT_EQ(Actions(),
            (Texts{L"probe 0", L"download http://192.0.2.10:31080/updates/client.exe > " + target,
                   L"probe 1234", L"trust " + target, L"keep 1.0.10 at 1800000000",
                   L"start updater " + target, L"end"}));
}

TEST_F(UpdateCheckTest, AFailedDownloadChangesNothing) {
  downloads_ = false;
  EXPECT_EQ(Offer(L"2.0", L"/x"), L"强制更新下载失败：2.0");
  EXPECT_EQ(Actions().size(), 2u) << "one attempt, and nothing after it";
}

TEST_F(UpdateCheckTest, AClosingProgramIsNotReplaced) {
  closesInDownload_ = true;
  EXPECT_EQ(Offer(L"1.0.10", L"http://h/x"), L"");
  EXPECT_EQ(Actions().back(), std::wstring(L"delete ") + kTarget);
  EXPECT_FALSE(lastTry_) << "it has not been tried";
}

TEST_F(UpdateCheckTest, WithoutATemporaryFolderNothingIsDownloaded) {
  reply_ =
      L"{\"success\":true,\"data\":{\"updateAvailable\":true,\"version\":\"2.0\","
      L"\"downloadUrl\":\"/x\",\"force\":true}}";
  currentVersion = current_;
  downloadTarget.clear();
  EXPECT_EQ(CheckForUpdate(settings_, *this), L"强制更新下载失败：2.0");
  EXPECT_EQ(events_, (Texts{question_, L"probe 0"}));
}

TEST_F(UpdateCheckTest, TheDownloadIsDeletedIfTheReplacementProcessDoesNotStart) {
  const std::wstring target = kTarget;
  starts_ = false;
  EXPECT_EQ(Offer(L"2.0", L"/x"), L"强制更新启动替换进程失败：2.0");
  EXPECT_EQ(Actions().at(Actions().size() - 2), L"start updater " + target);
  EXPECT_EQ(Actions().back(), L"delete " + target);
}

// ---- a forced update that cannot be installed leaves a working program

constexpr wchar_t kMoveIt[] =
    L"。请把本程序移到可以写入的文件夹（例如 C:\\Program Files "
    L"下的新文件夹）后重新运行；现在可继续使用当前版本。";

TEST_F(UpdateCheckTest, AProgramThatCannotBeReplacedContinuesWithoutADownload) {
  for (const std::uint32_t code : {5U, 19U, 32U}) {
    replaceable_ = {false, code};
    EXPECT_EQ(Offer(L"2.0", L"/x"), L"强制更新无法安装 2.0：本程序的文件不能被替换（错误码 " +
                                        std::to_wstring(code) + L"）" + kMoveIt);
    EXPECT_EQ(Actions(), Texts{L"probe 0"});
    EXPECT_FALSE(lastTry_);
  }
}

TEST_F(UpdateCheckTest, AFullDiskIsReported) {
  for (const std::uint32_t code : {39U, 112U}) {
    replaceableByDownload_ = {false, code};
    EXPECT_EQ(Offer(L"2.0", L"/x"), L"强制更新无法安装 2.0：本程序所在的磁盘空间不足（错误码 " +
                                        std::to_wstring(code) +
                                        L"）。请清理磁盘后重新运行；现在可继续使用当前版本。");
    EXPECT_EQ(Actions().back(), std::wstring(L"delete ") + kTarget);
    EXPECT_FALSE(lastTry_);
  }
}

TEST_F(UpdateCheckTest, AFileThatIsNotTrustedIsDeleted) {
  distrust_ = L"新程序不是由指定的发布者签名。";
  EXPECT_EQ(Offer(L"2.0", L"/x"), L"强制更新未安装 2.0：新程序不是由指定的发布者签名。");
  EXPECT_EQ(Actions().back(), std::wstring(L"delete ") + kTarget);
  EXPECT_FALSE(lastTry_);
}

TEST_F(UpdateCheckTest, AnUpdateThatCannotBeRecordedIsNotStarted) {
  keepsTry_ = false;
  EXPECT_EQ(
      Offer(L"2.0", L"/x"),
      L"强制更新无法安装 2.0：无法在用户数据文件夹中写入更新记录。请检查磁盘空间和文件夹权限；"
      L"现在可继续使用当前版本。");
  EXPECT_EQ(Actions().back(), std::wstring(L"delete ") + kTarget);
}

// The new file still reports 1.0.4; without a limit every start would end the program.
TEST_F(UpdateCheckTest, AnUpdateThatKeepsTheOldVersionIsTriedOnceADay) {
  const std::int64_t firstSeconds = nowSeconds_;
  const std::wstring refusal =
      L"强制更新 2.0 在一天内已经安装过一次，但本程序的版本仍是 1.0.4，今天不再重试。"
      L"请把这一行告诉服务管理员；现在可继续使用当前版本。";
  EXPECT_EQ(Offer(L"2.0", L"/x"), L"");
  for (const std::int64_t later : {0, 5, 24 * 3600 - 1}) {
    nowSeconds_ = firstSeconds + later;
    EXPECT_EQ(Offer(L"2.0", L"/x"), refusal) << later;
    EXPECT_EQ(Actions(), Texts{}) << later;
  }
  EXPECT_EQ(Offer(L"2.1", L"/x"), L"") << "another version is another update";
  nowSeconds_ += 24 * 3600;
  EXPECT_EQ(Offer(L"2.1", L"/x"), L"") << "the next day";
  nowSeconds_ -= 3600;
  EXPECT_EQ(Offer(L"2.1", L"/x"), L"") << "the clock had been wrong";
}

}  // namespace
}  // namespace update
