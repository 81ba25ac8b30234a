#include "service/api_messages.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace service {
namespace {

std::string FailureOf(std::wstring_view body) {
  try {
    ParseApiEnvelope(body);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "(none)";
}

TEST(ApiEnvelope, ReturnsTheDataOfASuccess) {
  const ApiEnvelope envelope = ParseApiEnvelope(LR"({"success":true,"data":{"x":1}})");

  EXPECT_TRUE(envelope.success);
  EXPECT_EQ(envelope.code, L"");
  EXPECT_EQ(envelope.message, L"");
  const settings::JsonValue* x = settings::FindJsonMember(envelope.data, L"x");
  ASSERT_NE(x, nullptr);
  ASSERT_NE(x->AsNumber(), nullptr);
  EXPECT_EQ(*x->AsNumber(), 1.0);
}

TEST(ApiEnvelope, ReadsCodeAndMessageOfARefusal) {
  const ApiEnvelope envelope =
      ParseApiEnvelope(LR"({"success":false,"code":"DEVICE_OFFLINE","message":"设备离线"})");

  EXPECT_FALSE(envelope.success);
  EXPECT_EQ(envelope.code, L"DEVICE_OFFLINE");
  EXPECT_EQ(envelope.message, L"设备离线");
  EXPECT_TRUE(envelope.data.IsNull());
}

TEST(ApiEnvelope, SucceedsOnlyOnTheBooleanTrue) {
  const std::wstring_view bodies[] = {
      LR"({"success":"true"})", LR"({"success":1})",
      LR"({"success":null})",   LR"({"success":[true]})",
      LR"({"Success":true})",   LR"({"success":false})",
      LR"({"success":{}})",     LR"({})",
  };
  for (const std::wstring_view body : bodies) {
    EXPECT_FALSE(ParseApiEnvelope(body).success) << std::string(body.begin(), body.end());
  }
}

TEST(ApiEnvelope, ReadsCodeAndMessageOfOtherTypesAsEmpty) {
  const ApiEnvelope envelope =
      ParseApiEnvelope(LR"({"success":false,"code":42,"message":null,"data":[1]})");

  EXPECT_EQ(envelope.code, L"");
  EXPECT_EQ(envelope.message, L"");
  ASSERT_NE(envelope.data.AsArray(), nullptr) << "data is copied whatever its kind";
}

TEST(ApiEnvelope, CopiesDataOfEveryType) {
  EXPECT_NE(ParseApiEnvelope(LR"({"data":"text"})").data.AsString(), nullptr);
  EXPECT_NE(ParseApiEnvelope(LR"({"data":7})").data.AsNumber(), nullptr);
  EXPECT_NE(ParseApiEnvelope(LR"({"data":false})").data.AsBoolean(), nullptr);
  EXPECT_NE(ParseApiEnvelope(LR"({"data":{}})").data.AsObject(), nullptr);
  EXPECT_TRUE(ParseApiEnvelope(LR"({"data":null})").data.IsNull());
}

TEST(ApiEnvelope, TreatsNonObjectsAsAFailureWithoutMessage) {
  const std::wstring_view bodies[] = {
      L"[1,2]",
      L"<html><body>502 Bad Gateway</body></html>",
      L"",
      L"   \r\n",
      L"\"text\"",
      L"true",
      L"Service Unavailable",
  };
  for (const std::wstring_view body : bodies) {
    SCOPED_TRACE(std::string(body.begin(), body.end()));
    const ApiEnvelope envelope = ParseApiEnvelope(body);
    EXPECT_FALSE(envelope.success);
    EXPECT_EQ(envelope.code, L"");
    EXPECT_EQ(envelope.message, L"");
    EXPECT_TRUE(envelope.data.IsNull());
  }
}

TEST(ApiEnvelope, IgnoresSpaceAroundAndTextBehindTheObject) {
  EXPECT_TRUE(ParseApiEnvelope(L" \r\n {\"success\":true} trailing words").success);
}

TEST(ApiEnvelope, SkipsOneByteOrderMark) {
  const ApiEnvelope envelope = ParseApiEnvelope(
      L"\xFEFF {\"success\":false,\"code\":\"DEVICE_OFFLINE\",\"message\":\"offline\"}");
  EXPECT_EQ(envelope.code, L"DEVICE_OFFLINE");
  EXPECT_EQ(envelope.message, L"offline");
  EXPECT_TRUE(ParseApiEnvelope(L"\xFEFF{\"success\":true}").success);
  EXPECT_EQ(FailureOf(L"\xFEFF{"), "Invalid JSON.");
  EXPECT_FALSE(ParseApiEnvelope(L"\xFEFF").success) << "nothing behind it";
  EXPECT_FALSE(ParseApiEnvelope(L"\xFEFF\xFEFF{\"success\":true}").success) << "the second is text";
  EXPECT_FALSE(ParseApiEnvelope(L" \xFEFF{\"success\":true}").success) << "only in front of all";
}

TEST(ApiEnvelope, UsesTheLastOfRepeatedMembers) {
  EXPECT_FALSE(ParseApiEnvelope(LR"({"success":true,"success":false})").success);
}

TEST(ApiEnvelope, ThrowsTheReadersErrorForMalformedJson) {
  EXPECT_EQ(FailureOf(L"{\"success\":tru"), "Invalid JSON.");
  EXPECT_EQ(FailureOf(L"{\"success\""), "Invalid JSON.");
  EXPECT_EQ(FailureOf(L"[1,"), "Invalid JSON.");
  EXPECT_EQ(FailureOf(L"{\"message\":\"cut"), "Invalid JSON string.");
  EXPECT_EQ(FailureOf(L"\"cut"), "Invalid JSON string.");
}

TEST(ApiEnvelope, SurvivesEveryTruncationOfAReply) {
  const std::wstring whole =
      LR"({"success":true,"code":"A","message":"b\n","data":{"routes":["10.0.0.0/8",7,null]}})";
  for (std::size_t length = 0; length < whole.size(); ++length) {
    try {
      EXPECT_FALSE(ParseApiEnvelope(std::wstring_view(whole).substr(0, length)).success &&
                   length == 0);
    } catch (const std::runtime_error&) {
      EXPECT_GT(length, 0u) << "an empty body is a failed reply, not malformed JSON";
    }
  }
}

TEST(ApiEnvelope, RefusesAMillionOpeningBrackets) {
  EXPECT_EQ(FailureOf(std::wstring(1'000'000, L'[')), "Invalid JSON.");
}

TEST(ServiceRefusalCode, KnowsTheFiveCodesInAnyLetterCase) {
  for (const std::wstring_view code :
       {L"DEVICE_NOT_BOUND", L"TRAFFIC_QUOTA_EXCEEDED", L"CONCURRENT_LIMIT_EXCEEDED",
        L"DEVICE_OFFLINE", L"DEVICE_RELAY_OFFLINE", L"device_offline", L"Traffic_Quota_Exceeded"}) {
    EXPECT_TRUE(IsServiceRefusalCode(code)) << std::string(code.begin(), code.end());
  }
}

TEST(ServiceRefusalCode, RejectsEveryOtherText) {
  for (const std::wstring_view code : {L"", L"DEVICE_OFFLINE ", L" DEVICE_OFFLINE", L"DEVICE",
                                       L"DEVICE_OFFLINE_", L"DEVICE-OFFLINE", L"OK"}) {
    EXPECT_FALSE(IsServiceRefusalCode(code)) << std::string(code.begin(), code.end());
  }
}

}  // namespace
}  // namespace service
