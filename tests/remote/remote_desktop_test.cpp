#include "remote/remote_desktop.h"

#include <gtest/gtest.h>

#include <regex>
#include <system_error>

#include "remote/fake_computer.h"
#include "text/utf8.h"

namespace remote {
namespace {

const std::wstring kProgram = L"C:\\PF\\RustDesk\\rustdesk.exe";
const std::wstring kLaunch = L"launch " + kProgram + L" \"--connect\" \"987\"";
const std::wstring kRequest =
    L"POST http://h:1/api/devices/D-1/remote-desktop/session "
    L"{\"deviceNumber\":\"D-1\",\"deviceSecret\":\"key\",\"engineerId\":\"ENG-12345678\"}";

// Opens desktops on a fake computer that records every action in one list.
class RemoteDesktopTest : public testing::Test {
 protected:
  class Computer : public FakeComputer {
   public:
    explicit Computer(RemoteDesktopTest& test) : test_(test) {}

    service::HttpResponse SendJsonRequest(const std::wstring& method, const std::wstring& url,
                                          const std::wstring& body) override {
      Note(method + L" " + url + L" " + body);
      if (test_.serviceFails_)
        throw std::runtime_error("WinHttpReceiveResponse: \xE8\xB6\x85\xE6\x97\xB6");
      return {400, test_.reply_};  // the status does not matter
    }
    std::optional<std::uint64_t> SizeBytes(const std::wstring& path) override {
      if (test_.closesAt_ == L"find") test_.closing_.request_stop();
      return FakeComputer::SizeBytes(path);
    }
    std::vector<std::wstring> ListFolders(const std::wstring& folder) override {
      isConfiguring_ = true;
      return FakeComputer::ListFolders(folder);
    }
    // The first file of a configuration is preceded by "configure <rendezvous server>".
    void WriteConfigFile(const std::wstring& path, const std::string& bytes) override {
      const std::string line = bytes.substr(0, bytes.find('\n'));
      const std::size_t valueAt = line.find('\'') + 1;
      const std::string server = line.substr(valueAt, line.rfind('\'') - valueAt);
      if (isConfiguring_) Note(L"configure " + text::FromUtf8(server));
      isConfiguring_ = false;
      if (test_.closesAt_ == L"configure") test_.closing_.request_stop();
      FakeComputer::WriteConfigFile(path, bytes);
    }
    void Launch(const std::wstring& exePath, std::span<const std::wstring> arguments) override {
      Note(L"launch " + exePath + L" " + JoinArguments(arguments));
    }
    bool CopyPassword(const std::wstring& password) override {
      Note(L"copy " + password);
      return test_.copies_;
    }
    void StartPasswordPaste(const std::wstring& password, const std::wstring& id,
                            const std::wstring& startedPath) override {
      Note(L"paste " + password + L" into " + id);
      EXPECT_EQ(startedPath, kProgram);
      if (!test_.threads_)
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }

   private:
    RemoteDesktopTest& test_;
    bool isConfiguring_ = false;
  };

  RemoteDesktopTest() {
    settings_.serverUrl = L"http://h:1";
    settings_.deviceNumber = L"D-1";
    settings_.deviceSecret = L"key";
    settings_.engineerId = L"ENG-12345678";
    computer_.files[kProgram] = 5;
    computer_.folders.windows = L"E:\\Windows";  // without users: three configuration files
  }

  std::wstring Open(const std::wstring& reply) {
    reply_ = reply;
    computer_.closing = closing_.get_token();
    return StartRemoteDesktop(settings_, computer_);
  }

  const Events& Done() const { return computer_.events; }

  Computer computer_{*this};
  settings::Settings settings_;
  std::stop_source closing_;
  std::wstring reply_;
  std::wstring closesAt_;  // the program closes during this step
  bool copies_ = true;
  bool threads_ = true;
  bool serviceFails_ = false;
};

TEST_F(RemoteDesktopTest, DoesEverythingInOrder) {
  EXPECT_EQ(Open(LR"({"success":true,"data":{"rustDeskId":"987","accessPassword":"pw",)"
                 LR"("server":{"rendezvousServer":"r"}}})"),
            L"远程桌面已打开：987，访问密码已复制。");
  ASSERT_EQ(computer_.written.size(), 3U);
  ASSERT_EQ(Done().size(), 11U);
  EXPECT_EQ(Done()[0], kRequest);
  EXPECT_EQ(Done()[1], L"configure r");
  EXPECT_EQ(Events(Done().begin() + 8, Done().end()),
            (Events{L"copy pw", kLaunch, L"paste pw into 987"}));
  EXPECT_EQ(settings_.rustDeskPath, kProgram);
}

TEST_F(RemoteDesktopTest, WithoutAServerNothingIsConfigured) {
  for (const wchar_t* const data :
       {LR"({"rustDeskId":"987"})", LR"({"rustDeskId":"987","server":"r"})",
        LR"({"rustDeskId":"987","accessPassword":4,"server":[]})"}) {
    computer_.events.clear();
    EXPECT_EQ(Open(std::wstring(L"{\"success\":true,\"data\":") + data + L"}"),
              L"远程桌面已打开：987。");
    EXPECT_EQ(Done(), (Events{kRequest, kLaunch}));
  }
}

TEST_F(RemoteDesktopTest, WithoutAPasswordTheClipboardIsLeftAlone) {
  copies_ = false;
  EXPECT_EQ(Open(LR"({"success":true,"data":{"rustDeskId":"987","accessPassword":""}})"),
            L"远程桌面已打开：987。");
  EXPECT_EQ(Done(), (Events{kRequest, kLaunch}));
}

TEST_F(RemoteDesktopTest, WithoutAnIdRustDeskStartsWithoutArguments) {
  EXPECT_EQ(Open(LR"({"success":true,"data":{"accessPassword":"pw"}})"),
            L"远程桌面已打开：，访问密码已复制。");
  EXPECT_EQ(Done(),
            (Events{kRequest, L"copy pw", L"launch " + kProgram + L" ", L"paste pw into "}));
}

TEST_F(RemoteDesktopTest, AnEmptyReplyStillStartsRustDesk) {
  for (const wchar_t* const reply : {L"{\"success\":true}", L"{\"success\":true,\"data\":[1]}"}) {
    computer_.events.clear();
    EXPECT_EQ(Open(reply), L"远程桌面已打开：。");
    EXPECT_EQ(Done(), (Events{kRequest, L"launch " + kProgram + L" "}));
  }
}

TEST_F(RemoteDesktopTest, PassesOnAQuoteInTheIdUnchanged) {
  Open(LR"({"success":true,"data":{"rustDeskId":"9\"7"}})");
  EXPECT_EQ(Done()[1], L"launch " + kProgram + L" \"--connect\" \"9\"7\"");
}

TEST_F(RemoteDesktopTest, AHeldClipboardPreventsPasting) {
  copies_ = false;
  EXPECT_EQ(Open(LR"({"success":true,"data":{"rustDeskId":"987","accessPassword":"pw"}})"),
            L"远程桌面已打开：987，访问密码复制失败，请手动复制。");
  EXPECT_EQ(Done(), (Events{kRequest, L"copy pw", kLaunch}));
}

TEST_F(RemoteDesktopTest, ARefusalEndsItAndSavesNothing) {
  const struct {
    const wchar_t* reply;
    const wchar_t* text;
  } rows[] = {
      {LR"({"success":false,"code":"DEVICE_OFFLINE","message":"设备离线","data":{}})",
       L"远程桌面失败：设备离线"},
      {LR"({"success":"true","message":"?"})", L"远程桌面失败：?"},
      {LR"({"data":{"rustDeskId":"987"}})", L"远程桌面失败："},
      {L"<html>", L"远程桌面失败："},
      {L"", L"远程桌面失败："},
      {L"{\"success\"", L"远程桌面失败：Invalid JSON."},
      {L"{\"success", L"远程桌面失败：Invalid JSON string."},
  };
  for (const auto& row : rows) {
    computer_.events.clear();
    EXPECT_EQ(Open(row.reply), row.text) << row.reply;
    EXPECT_EQ(Done(), Events{kRequest});
  }
}

TEST_F(RemoteDesktopTest, AFailedTransportIsShownLikeARefusal) {
  serviceFails_ = true;
  EXPECT_EQ(Open(L""), L"远程桌面失败：WinHttpReceiveResponse: 超时");
  EXPECT_EQ(Done(), Events{kRequest});
}

TEST_F(RemoteDesktopTest, WithoutAProgramNothingIsConfiguredCopiedOrSaved) {
  computer_.files.clear();
  settings_.rustDeskPath = L"F:\\gone.exe";
  for (const wchar_t* const server : {L"{\"rendezvousServer\":\"r\"}", L"null"}) {
    computer_.events.clear();
    EXPECT_EQ(Open(LR"({"success":true,"data":{"rustDeskId":"9","accessPassword":"pw","server":)" +
                   std::wstring(server) + L"}}"),
              L"未找到 RustDesk 程序。");
    ASSERT_EQ(Done().size(), 3U);
    EXPECT_EQ(Done()[1], L"mkdir " + computer_.folders.runtime);
    EXPECT_TRUE(Done()[2].starts_with(L"delete "));
    EXPECT_EQ(settings_.rustDeskPath, L"F:\\gone.exe");
  }
}

TEST_F(RemoteDesktopTest, ADownloadedProgramIsRemembered) {
  computer_.files.clear();
  computer_.downloadBytes = 1'048'577;
  EXPECT_EQ(Open(LR"({"success":true,"data":{"server":{"windowsDownloadUrl":"rd.exe"}}})"),
            L"远程桌面已打开：。");
  const std::wstring target = computer_.folders.runtime + L"\\rustdesk.exe";
  EXPECT_EQ(settings_.rustDeskPath, target);
}

TEST_F(RemoteDesktopTest, ADifferentProgramIsRemembered) {
  settings_.rustDeskPath = L"F:\\gone.exe";
  Open(LR"({"success":true})");
  EXPECT_EQ(settings_.rustDeskPath, kProgram);
  Open(LR"({"success":true})");
  EXPECT_EQ(settings_.rustDeskPath, kProgram);
}

TEST_F(RemoteDesktopTest, FilesThatCannotBeWrittenAreNotReported) {
  computer_.throwsAt = L"C:\\Users\\li\\AppData\\Roaming\\RustDesk\\config\\RustDesk2.toml";
  EXPECT_EQ(Open(LR"({"success":true,"data":{"server":{"rendezvousServer":"r"}}})"),
            L"远程桌面已打开：。");
  EXPECT_EQ(computer_.written.size(), 2U);
  EXPECT_EQ(Done().back(), kLaunch.substr(0, kLaunch.find(L'"')));
}

TEST_F(RemoteDesktopTest, AClosingProgramStartsNothing) {
  for (const wchar_t* const step : {L"find", L"configure"}) {
    computer_.events.clear();
    closing_ = std::stop_source();
    closesAt_ = step;
    Open(
        LR"({"success":true,"data":{"rustDeskId":"987","accessPassword":"pw",)"
        LR"("server":{"rendezvousServer":"r"}}})");
    for (const std::wstring& event : Done()) {
      EXPECT_FALSE(event.starts_with(L"copy")) << step;
      EXPECT_FALSE(event.starts_with(L"launch")) << step;
      EXPECT_FALSE(event.starts_with(L"paste")) << step;
    }
    EXPECT_EQ(Done().size() == 1, closesAt_ == L"find") << "configured";
    EXPECT_EQ(settings_.rustDeskPath, L"");
  }
}

TEST_F(RemoteDesktopTest, FailsWithoutAThreadForPasting) {
  threads_ = false;
  EXPECT_THROW(Open(LR"({"success":true,"data":{"rustDeskId":"987","accessPassword":"pw"}})"),
               std::system_error);
  EXPECT_EQ(Done().back(), L"paste pw into 987");
}

TEST_F(RemoteDesktopTest, ANewEngineerIdIsSentAndStored) {
  settings_.engineerId.clear();
  Open(LR"({"success":true})");
  EXPECT_TRUE(std::regex_match(settings_.engineerId, std::wregex(L"ENG-[1-9][0-9]{7}")));
  EXPECT_NE(Done()[0].find(L"\"engineerId\":\"" + settings_.engineerId + L"\""),
            std::wstring::npos);
}

TEST_F(RemoteDesktopTest, ANewEngineerIdIsKeptAfterARefusal) {
  settings_.engineerId.clear();
  Open(LR"({"success":false})");
  EXPECT_EQ(settings_.engineerId.size(), 12U);
}

TEST_F(RemoteDesktopTest, AnExistingEngineerIdIsKept) {
  Open(LR"({"success":true})");
  EXPECT_EQ(settings_.engineerId, L"ENG-12345678");
}

TEST_F(RemoteDesktopTest, NoResultContainsThePassword) {
  for (const bool copies : {true, false}) {
    copies_ = copies;
    const std::wstring text =
        Open(LR"({"success":true,"data":{"rustDeskId":"987","accessPassword":"s3cret"}})");
    EXPECT_EQ(text.find(L"s3cret"), std::wstring::npos);
    EXPECT_EQ(settings::WriteSettingsText(settings_).find(L"s3cret"), std::wstring::npos);
  }
}

}  // namespace
}  // namespace remote
