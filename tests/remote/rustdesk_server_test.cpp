#include "remote/desktop_session.h"

#include <gtest/gtest.h>

namespace remote {
namespace {

RustDeskServer Read(const wchar_t* json) {
  return ReadRustDeskServer(settings::ReadJsonDocument(json));
}

TEST(RustDeskServer, ReadsEachTextByItsName) {
  const RustDeskServer server = Read(
      LR"({"rendezvousServer":"r","relayServer":"l","apiServer":"a","key":"k",)"
      LR"("windowsDownloadUrl":"w","more":"x"})");
  EXPECT_EQ(server.rendezvousServer, L"r");
  EXPECT_EQ(server.relayServer, L"l");
  EXPECT_EQ(server.apiServer, L"a");
  EXPECT_EQ(server.key, L"k");
  EXPECT_EQ(server.windowsDownloadUrl, L"w");
}

TEST(RustDeskServer, TreatsOtherTypesAsEmpty) {
  const wchar_t* const descriptions[] = {
      LR"({"rendezvousServer":1,"relayServer":["l"],"apiServer":null,"key":true})",
      LR"({"rendezvousServer":null,"key":["k"],"windowsDownloadUrl":{}})",
      L"{}",
      LR"({"RendezvousServer":"r","Key":"k"})",
  };
  for (const wchar_t* const json : descriptions) {
    const RustDeskServer server = Read(json);
    EXPECT_EQ(server.rendezvousServer + server.relayServer + server.apiServer + server.key +
                  server.windowsDownloadUrl,
              L"")
        << json;
  }
}

}  // namespace
}  // namespace remote
