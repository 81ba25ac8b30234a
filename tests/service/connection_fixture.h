#pragma once

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "service/fake_world.h"

namespace service {

using Events = std::vector<std::wstring>;

inline constexpr wchar_t kRequestUrl[] = L"http://192.0.2.10:31080/api/connections/request";
inline constexpr wchar_t kGrant[] =
    LR"({"success":true,"data":{"connectionId":"c1","assignedAddress":"10.8.0.2",)"
    LR"("routes":["192.168.1.0/24",7,"10.0.0.0/8"]}})";
inline constexpr wchar_t kGrantText[] =
    L"连接授权成功：c1，分配地址 10.8.0.2，路由 192.168.1.0/24\r\n10.0.0.0/8";

// Settings with a device and an engineer, in a fake world.
class ConnectionTest : public testing::Test {
 protected:
  ConnectionTest() {
    settings_.serverUrl = L"http://192.0.2.10:31080";
    settings_.deviceNumber = L"D-100";
    settings_.deviceSecret = L"key";
    settings_.targetNetwork = L"192.168.1.0/24";
    settings_.engineerId = L"ENG-12345678";
    world_.started.text = L"软件隧道已启动";
  }

  void HoldConnection() {
    settings_.connectionId = L"old";
    settings_.assignedAddress = L"10.8.0.9";
    settings_.routesText = L"10.1.0.0/16\r\n10.2.0.0/16";
    settings_.accessRoutesText = L"10.1.0.0/16";
    settings_.routeMappingsText = L"a -> b";
  }

  void ExpectNoConnection(const settings::Settings& settings) {
    EXPECT_EQ(settings.connectionId, L"");
    EXPECT_EQ(settings.assignedAddress, L"");
    EXPECT_EQ(settings.routesText, L"");
    EXPECT_EQ(settings.granted, settings::GrantedConnection());
  }

  void ExpectForgotten(const settings::Settings& settings) {
    ExpectNoConnection(settings);
    EXPECT_EQ(settings.accessRoutesText, L"");
    EXPECT_EQ(settings.routeMappingsText, L"");
    EXPECT_EQ(settings.targetNetwork, L"ALL");
  }

  std::wstring Authorize() {
    return Run([this](settings::JobSettings& job) { return world_.Jobs().Authorize(job); });
  }
  std::wstring Disconnect() {
    return Run([this](settings::JobSettings& job) { return world_.Jobs().Disconnect(job); });
  }
  std::wstring Connect() { return ConnectIn(world_); }
  std::wstring ConnectIn(FakeWorld& world) {
    return world.RunJob(
        settings_, [&](settings::JobSettings& job) { return world.Jobs().Connect(job, world); });
  }
  std::wstring StopTunnel() {
    return Run([this](settings::JobSettings& job) { return world_.Jobs().Stop(job, world_); });
  }
  template <typename Call>
  std::wstring Run(Call call) {
    return world_.RunJob(settings_, call);
  }

  template <typename Call>
  std::string FailureOf(Call call) {
    try {
      call();
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "(none)";
  }

  settings::Settings settings_;
  FakeWorld world_;
};

}  // namespace service
