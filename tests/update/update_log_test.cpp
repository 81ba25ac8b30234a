#include "update/update_records.h"

#include <gtest/gtest.h>

namespace update {
namespace {

TEST(UpdateLogLine, PutsTheTimeBeforeTheMessage) {
  EXPECT_EQ(UpdateLogLine({2026, 11, 21, 18, 5, 59}, L"更新成功，已重启主程序。"),
            L"[2026-11-21 18:05:59] 更新成功，已重启主程序。\r\n");
}

TEST(UpdateLogLine, PadsEveryNumber) {
  EXPECT_EQ(UpdateLogLine({987, 1, 2, 3, 4, 5}, L""), L"[0987-01-02 03:04:05] \r\n");
}

TEST(UpdateLogLine, AcceptsAMessageOfAnyLength) {
  const std::wstring path(32000, L'路');
  EXPECT_EQ(UpdateLogLine({2026, 1, 1, 0, 0, 0}, path), L"[2026-01-01 00:00:00] " + path + L"\r\n");
}

}  // namespace
}  // namespace update
