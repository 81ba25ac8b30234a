#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "checks/driver_checks.h"
#include "tunnel/driver/fake_driver.h"
#include "tunnel/driver/windivert.h"

namespace checks {
namespace {

using Call = tunnel::FakeDriver::Call;

std::vector<std::wstring> ProblemsOf(const Outcome& outcome) {
  std::vector<std::wstring> texts;
  for (const Problem& problem : outcome.problems) {
    texts.push_back((problem.verdict == Verdict::Fault ? L"异常 " : L"提示 ") + problem.text);
  }
  return texts;
}
using Texts = std::vector<std::wstring>;

class DriverChecks : public testing::Test {
 protected:
  DriverChecks() {
    deps_.heldFiles = std::make_shared<int>(0);
    deps_.load = [this] { return driver_.Api(); };
    deps_.isClientRunning = [this] { return isClientRunning_; };
    deps_.runHidden = [this](const std::wstring& command, std::chrono::milliseconds) {
      EXPECT_EQ(driver_.OpenHandles(), 0u) << "the service is stopped behind the closing";
      commands_.push_back(command);
      return true;
    };
  }
  ~DriverChecks() override {
    EXPECT_EQ(driver_.OpenHandles(), 0u);
    EXPECT_EQ(driver_.LoadedLibraries(), 0);
    EXPECT_TRUE(driver_.Misuses().empty());
  }

  tunnel::FakeDriver driver_;
  bool isClientRunning_ = false;
  Texts commands_;
  DriverDeps deps_;
};

TEST_F(DriverChecks, OpenWithTheMaximumOfUnusedRoutes) {
  EXPECT_EQ(ProblemsOf(CheckDriverOpens(deps_)), Texts{});
  const auto opened = driver_.Opened();
  ASSERT_EQ(opened.size(), 2u);
  const std::string& filter = opened[0].filter;
  std::size_t clauses = 0;
  for (std::size_t at = filter.find("ip.DstAddr >="); at != std::string::npos;
       at = filter.find("ip.DstAddr >=", at + 1)) {
    ++clauses;
    const std::string from = filter.substr(at + 14, 12);
    EXPECT_TRUE(from.starts_with("198.51.100.") || from.starts_with("203.0.113.")) << from;
  }
  EXPECT_EQ(clauses, 124u);
  EXPECT_EQ(opened[0].priority, -300);
  EXPECT_EQ(opened[1].filter, "false");
}

TEST_F(DriverChecks, RemoveTheServiceThatTheyCreated) {
  CheckDriverOpens(deps_);
  EXPECT_EQ(commands_, (Texts{L"sc stop WinDivert64", L"sc delete WinDivert64",
                              L"sc stop WinDivert", L"sc delete WinDivert"}));
}

TEST_F(DriverChecks, KeepAServiceThatExistedOrThatAClientUses) {
  deps_.wasServiceThere = true;
  CheckDriverOpens(deps_);
  deps_.wasServiceThere = false;
  isClientRunning_ = true;
  CheckDriverOpens(deps_);
  EXPECT_EQ(commands_, Texts{});
}

TEST_F(DriverChecks, DoNotLoadOtherFiles) {
  deps_.heldFiles = nullptr;
  const Texts note{L"提示 没有试：运行目录里没有本程序自带的驱动文件"};
  EXPECT_EQ(ProblemsOf(CheckDriverOpens(deps_)), note);
  EXPECT_EQ(ProblemsOf(CheckDriverSums(deps_)), note);
  EXPECT_TRUE(driver_.Opened().empty());
  EXPECT_EQ(commands_, Texts{});
}

TEST_F(DriverChecks, ExplainWhyItDoesNotOpen) {
  driver_.FailNth(Call::Open, 1);
  driver_.SetOpenError(577);
  const Outcome outcome = CheckDriverOpens(deps_);
  ASSERT_EQ(outcome.problems.size(), 1u);
  EXPECT_EQ(outcome.WorstVerdict(), Verdict::Fault);
  EXPECT_EQ(outcome.problems[0].text, L"驱动打不开：" + tunnel::DescribeDriverError(577));
  EXPECT_EQ(commands_.size(), 4u);
}

// Connecting stops such a service and tries again.
TEST_F(DriverChecks, OnlyNoteProblemsThatAConnectionSolves) {
  driver_.FailNth(Call::Open, 2);
  driver_.SetOpenError(1058);
  EXPECT_EQ(CheckDriverOpens(deps_).WorstVerdict(), Verdict::Note);
}

TEST_F(DriverChecks, ExplainALibraryThatDoesNotLoad) {
  deps_.load = []() -> std::unique_ptr<tunnel::WinDivertApi> {
    throw tunnel::DriverError("WinDivert.dll is missing required exports.", 0);
  };
  const Texts fault{L"异常 驱动打不开：WinDivert.dll is missing required exports."};
  EXPECT_EQ(ProblemsOf(CheckDriverOpens(deps_)), fault);
  EXPECT_EQ(ProblemsOf(CheckDriverSums(deps_)), fault);
}

// The fake driver computes them without the program's code.
TEST_F(DriverChecks, AcceptCorrectChecksums) {
  const Outcome outcome = CheckDriverSums(deps_);
  EXPECT_EQ(ProblemsOf(outcome), Texts{});
  EXPECT_EQ(outcome.lines, (Texts{L"ICMP：正确", L"TCP：正确", L"UDP：正确"}));
}

int (*calcChecksumsOfFake)(void*, std::uint32_t, tunnel::WinDivertAddress*,
                           std::uint64_t) = nullptr;

TEST_F(DriverChecks, FaultEachWrongChecksum) {
  deps_.load = [this] {
    auto api = driver_.Api();
    calcChecksumsOfFake = api->calcChecksums;
    api->calcChecksums = [](void* packet, std::uint32_t lengthBytes,
                            tunnel::WinDivertAddress* address, std::uint64_t flags) {
      const int result = calcChecksumsOfFake(packet, lengthBytes, address, flags);
      auto* const bytes = static_cast<std::byte*>(packet);
      const bool isUdp = bytes[9] == std::byte{17};
      bytes[isUdp ? 26 : 10] ^= std::byte{1};
      return result;
    };
    return api;
  };
  const Outcome outcome = CheckDriverSums(deps_);
  ASSERT_EQ(outcome.problems.size(), 3u);
  EXPECT_TRUE(outcome.problems[0].text.starts_with(L"ICMP 的校验和不对：IP 头 应为 "));
  EXPECT_TRUE(outcome.problems[2].text.starts_with(L"UDP 的校验和不对：数据 应为 "));
}

TEST_F(DriverChecks, FaultAFailingCalculation) {
  driver_.FailNth(Call::Checksums, 2);
  EXPECT_EQ(ProblemsOf(CheckDriverSums(deps_)),
            Texts{L"异常 TCP 的校验和不对：WinDivert checksum recalculation failed."});
}

TEST(DriverFileCheck, FaultsMissingAndForeignFiles) {
  EXPECT_EQ(ProblemsOf(JudgeDriverFiles({{L"a.dll", 5, "11", "11"}})), Texts{});
  EXPECT_EQ(
      ProblemsOf(JudgeDriverFiles({{L"a.dll", std::nullopt, "", "11"}, {L"b.sys", 5, "22", "33"}})),
      (Texts{L"异常 缺少驱动文件 a.dll",
             L"异常 驱动文件不是本程序自带的：b.sys（自带的 SHA-256：33）"}));
  EXPECT_EQ(JudgeDriverFiles({{L"a.dll", 5, "", ""}}).WorstVerdict(), Verdict::Fault)
      << "no sum could be made";
}

struct ServiceRow {
  ServiceFacts service;
  bool isClientRunning;
  Texts problems;
};

TEST(DriverServiceCheck, ReportsTheObstacles) {
  const std::wstring own = L"\\??\\C:\\Runtime\\WinDivert64.sys";
  const ServiceRow rows[] = {
      {{L"disk", L"", true, true, true, L""}, false, {}},
      {{L"WinDivert", L"", true, false, true, own}, true, {}},
      {{L"WinDivert", L"", true, false, true, own},
       false,
       {L"提示 客户端没有运行，驱动服务却还在"}},
      {{L"WinDivert", L"", false, true, false, own},
       false,
       {L"异常 驱动服务 WinDivert 被停用（错误 1058）"}},
      {{L"WinDivert64", L"", false, false, true, own},
       false,
       {L"提示 驱动服务 WinDivert64 正在删除"}},
      {{L"windivert1.4", L"", true, false, false, L"D:\\x.sys"},
       true,
       {L"提示 另一程序的 WinDivert 驱动：windivert1.4，D:\\x.sys"}},
  };
  for (const ServiceRow& row : rows) {
    ServiceList list;
    list.drivers = {row.service};
    EXPECT_EQ(ProblemsOf(JudgeDriverServices(list, L"c:\\runtime", row.isClientRunning)),
              row.problems);
  }
  EXPECT_EQ(ProblemsOf(JudgeDriverServices({5, {}}, L"c:\\runtime", false)),
            Texts{L"提示 系统没有列出驱动服务：错误 5"});
}

}  // namespace
}  // namespace checks
