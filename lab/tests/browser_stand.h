#pragma once

#include <gtest/gtest.h>

#include <string>

#include "browser_fake_bridge.h"
#include "browser_raw_com.h"
#include "platform/modules_win.h"

using CreateFunction = HRESULT(STDAPICALLTYPE*)(bool, int, PCWSTR, IUnknown*, RawHandler*);

// The stand-in lies beside the tests in the build tree.
inline CreateFunction LoadBrowserStandIn() {
  std::wstring path(MAX_PATH, L'\0');
  path.resize(::GetModuleFileNameW(nullptr, path.data(), MAX_PATH));
  path = path.substr(0, path.rfind(L'\\')) +
         L"\\..\\lab\\browser\\120.0.0.0\\EBWebView\\x64\\EmbeddedBrowserWebView.dll";
  const HMODULE module = ::LoadLibraryW(path.c_str());
  return module == nullptr ? nullptr
                           : platform::GetProcAddressAs<CreateFunction>(
                                 module, "CreateWebViewEnvironmentWithOptionsInternal");
}

inline std::wstring DataFolder() {
  wchar_t folder[MAX_PATH];
  ::GetTempPathW(MAX_PATH, folder);
  return std::wstring(folder) + L"lab_browser_test";
}

// Every call returns this after Close, the parent's end or the browser's exit.
inline constexpr HRESULT kInvalidState = static_cast<HRESULT>(0x8007139F);

// The object implements the first ids and none of the others.
inline void ExpectAnswers(void* object, std::initializer_list<const wchar_t*> ids,
                          std::initializer_list<const wchar_t*> refused) {
  for (const wchar_t* id : ids) {
    void* out = nullptr;
    ASSERT_EQ(Query(object, id, &out), S_OK) << id;
    EXPECT_EQ(out, object);
    ReleaseRaw(out);
  }
  for (const wchar_t* id : refused) {
    void* out = object;
    EXPECT_EQ(Query(object, id, &out), E_NOINTERFACE);
    EXPECT_EQ(out, nullptr);
  }
}

// A window with the stand-in's environment, controller and web view and a fake bridge, each created
// as far as the test needs.
class Stand : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SUCCEEDED(::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)));
    create_ = LoadBrowserStandIn();
    ASSERT_NE(create_, nullptr);
    ::SetEnvironmentVariableW(L"LAB_WEBVIEW_PORT", std::to_wstring(bridge_.Port()).c_str());
    parent_ = ::CreateWindowW(L"STATIC", L"parent", WS_OVERLAPPEDWINDOW, 0, 0, 400, 300, nullptr,
                              nullptr, nullptr, nullptr);
    ASSERT_NE(parent_, nullptr);
  }
  void TearDown() override {
    if (controller_ != nullptr) CallSlot(controller_, 24);
    ReleaseRaw(webview_);
    ReleaseRaw(controller_);
    ReleaseRaw(environment_);
    ::DestroyWindow(parent_);
    ::SetEnvironmentVariableW(L"LAB_WEBVIEW_FAIL", nullptr);
    ::CoUninitialize();
  }

  HRESULT CreateEnvironment(RawHandler* handler) {
    return create_(true, 0, DataFolder().c_str(), nullptr, handler);
  }

  void OpenEnvironment() {
    RawHandler completed([this](void* result, void* object) {
      ASSERT_EQ(ResultOf(result), S_OK);
      AddRefRaw(object);
      environment_ = object;
    });
    ASSERT_EQ(CreateEnvironment(&completed), S_OK);
    EXPECT_EQ(completed.calls, 0);
    ASSERT_TRUE(Pump([&] { return environment_ != nullptr && completed.references == 1; }));
    EXPECT_EQ(completed.thread, ::GetCurrentThreadId());
  }

  void OpenController() {
    OpenEnvironment();
    RawHandler completed([this](void* result, void* object) {
      ASSERT_EQ(ResultOf(result), S_OK);
      AddRefRaw(object);
      controller_ = object;
    });
    ASSERT_EQ(CallSlot(environment_, 3, parent_, &completed), S_OK);
    EXPECT_EQ(completed.calls, 0);
    EXPECT_NE(::GetWindow(parent_, GW_CHILD), nullptr);
    ASSERT_TRUE(Pump([&] { return controller_ != nullptr && completed.references == 1; }));
    EXPECT_EQ(completed.thread, ::GetCurrentThreadId());
    ASSERT_EQ(CallSlot(controller_, 25, &webview_), S_OK);
  }

  // Waits for a request of that kind and compares its body.
  void ExpectRequest(uint8_t kind, const std::string& body) {
    const auto frame = bridge_.Next(kind);
    ASSERT_TRUE(frame.has_value());
    EXPECT_EQ(frame->body, body);
  }

  FakeBridge bridge_;
  CreateFunction create_ = nullptr;
  HWND parent_ = nullptr;
  void* environment_ = nullptr;
  void* controller_ = nullptr;
  void* webview_ = nullptr;
};
