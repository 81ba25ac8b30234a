#include "driver/filter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/driver_filters.h"

using driver::Filter;

namespace {

// As a program can determine a filter's number of tests, and that 256 are too many.
std::ptrdiff_t CountTests(const std::string& object) {
  return std::count(object.begin() + 8, object.end(), '_');
}

std::string Tests(int count) {
  std::string text = "true";
  for (int i = 1; i < count; ++i) text += " and true";
  return text;
}

std::string ObjectOf(const std::string& text) {
  return driver::MakeFilterObject(*Filter::Compile(text), text);
}

TEST(FilterObject, StandsForItsFilter) {
  const packets::Bytes udp = packets::Ip(17, packets::Udp(1, 2, {}));
  for (const char* text : {"udp", "not udp", "(tcp ? false : udp.DstPort == 2)", "tcp or icmp"}) {
    const auto filter = driver::CompileFilter(ObjectOf(text));
    ASSERT_TRUE(filter) << text;
    EXPECT_EQ(filter->Matches({udp, driver::ReadHeaders(udp), {}}), filters::Matches(text, udp));
    EXPECT_EQ(driver::FilterTextOf(ObjectOf(text)), text);
  }
}

TEST(FilterObject, HasAMarkForEachTest) {
  for (const int count : {1, 2, 15, 16, 255, 256}) {
    EXPECT_EQ(CountTests(ObjectOf(Tests(count))), count);
  }
}

TEST(FilterObject, Of256TestsStatesNoneAndIsUseless) {
  EXPECT_EQ(ObjectOf(Tests(255)).substr(6, 2), "ff");
  EXPECT_TRUE(driver::CompileFilter(ObjectOf(Tests(255))));
  EXPECT_EQ(ObjectOf(Tests(256)).substr(6, 2), "00");
  driver::FilterError error;
  EXPECT_FALSE(driver::CompileFilter(ObjectOf(Tests(256)), &error));
  EXPECT_STRNE(error.message, "");
}

TEST(FilterObject, IsRefusedAfterAChange) {
  const std::string object = ObjectOf("udp and ip");
  for (std::size_t bytes = 1; bytes < object.size() - 6; ++bytes) {
    EXPECT_FALSE(driver::CompileFilter(object.substr(0, bytes))) << bytes;
  }
  for (const char* text : {"@", "@LAB2_", "@LAB2_0", "@LAB2_xx_true", "@LAB2_02_true",
                           "@LAB2_01true", "@LAB9_01_true", "@LAB2_01_", "@true"}) {
    EXPECT_FALSE(driver::CompileFilter(text)) << text;
  }
  EXPECT_TRUE(driver::CompileFilter("@LAB2_01_true"));
}

}  // namespace
