// Every Windows call of the loader, with its arguments and its failure.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "webview/web_create.h"
#include "win32/calls.h"

namespace webview {
namespace {

using win32::Api;
using win32::Handle;
using win32::Ref;
using win32::Said;
using win32::Some;

constexpr char kExport[] = "CreateWebViewEnvironmentWithOptionsInternal";
constexpr DWORD kSearch = LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32;
constexpr wchar_t kDataFolder[] = L"C:\\data";

// The arguments of the call to the library's export.
struct Created {
  int count = 0;
  bool checksRunning = false;
  int type = -1;
  std::wstring folder;
  IUnknown* options = nullptr;
  void* handler = nullptr;
};
Created created;

HRESULT STDMETHODCALLTYPE
Create(bool checksRunning, int type, PCWSTR folder, IUnknown* options,
       ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler* handler) {
  created = {created.count + 1, checksRunning, type, folder, options, handler};
  return 0x1234;
}

// A runtime registered for all users, with its library.
class FakeRuntime {
 public:
  void Answer(win32::Calls& calls) const {
    calls.AnswerWith<Api::GetFileAttributesW>(
        [](const wchar_t*) -> DWORD { return FILE_ATTRIBUTE_NORMAL; });
    AnswerRegistry(calls);
    AnswerLibrary(calls);
  }

  std::wstring registered = L"C:\\rt\\121.0.2277.106";
  DWORD type = REG_SZ;

 private:
  void AnswerRegistry(win32::Calls& calls) const {
    calls.AnswerWith<Api::RegOpenKeyExW>([](HKEY, const wchar_t*, DWORD, REGSAM, HKEY* opened) {
      *opened = reinterpret_cast<HKEY>(std::uintptr_t{0x101});
      return LSTATUS{ERROR_SUCCESS};
    });
    calls.AnswerWith<Api::RegQueryValueExW>(
        [this](HKEY, const wchar_t*, DWORD*, DWORD* toldType, BYTE* value, DWORD* sizeBytes) {
          const auto neededBytes = static_cast<DWORD>((registered.size() + 1) * sizeof(wchar_t));
          const bool fits = neededBytes <= *sizeBytes;
          if (fits) std::memcpy(value, registered.c_str(), neededBytes);
          *toldType = type;
          *sizeBytes = neededBytes;
          return LSTATUS{fits ? ERROR_SUCCESS : ERROR_MORE_DATA};
        });
    calls.AnswerWith<Api::RegCloseKey>([](HKEY) { return LSTATUS{ERROR_SUCCESS}; });
  }

  static void AnswerLibrary(win32::Calls& calls) {
    calls.AnswerWith<Api::LoadLibraryExW>([](const wchar_t*, HANDLE, DWORD) {
      return reinterpret_cast<HMODULE>(std::uintptr_t{0x201});
    });
    calls.AnswerWith<Api::FreeLibrary>([](HMODULE) { return TRUE; });
    calls.AnswerWith<Api::GetProcAddress>([](HMODULE, const char*) {
      return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&Create));
    });
  }
};

HRESULT Load() {
  return CreateCoreWebView2EnvironmentWithOptions(
      kDataFolder,
      reinterpret_cast<ICoreWebView2CreateCoreWebView2EnvironmentCompletedHandler*>(&created));
}

class LoaderCalls : public testing::Test {
 protected:
  LoaderCalls() {
    created = {};
    runtime_.Answer(calls_);
  }

  static std::wstring Library(const std::wstring& folder) {
    return folder + L"\\EBWebView\\x64\\EmbeddedBrowserWebView.dll";
  }

  static constexpr wchar_t kStable[] =
      L"Software\\Microsoft\\EdgeUpdate\\ClientState\\{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}";
  FakeRuntime runtime_;
  win32::Calls calls_;
};

TEST_F(LoaderCalls, UseTheRegisteredRuntimeAndKeepItsLibrary) {
  EXPECT_EQ(Load(), 0x1234);
  EXPECT_TRUE(calls_.Were({
      Said<Api::RegOpenKeyExW>(HKEY_LOCAL_MACHINE, kStable, 0, KEY_READ | KEY_WOW64_32KEY, Some{}),
      Said<Api::RegQueryValueExW>(Handle{1}, L"EBWebView", nullptr, Ref{0}, Some{}, Ref{520}),
      Said<Api::RegCloseKey>(Handle{1}),
      Said<Api::GetFileAttributesW>(Library(runtime_.registered)),
      Said<Api::LoadLibraryExW>(Library(runtime_.registered), nullptr, kSearch),
      Said<Api::GetLastError>(),
      Said<Api::GetProcAddress>(Handle{2}, kExport),
      Said<Api::GetLastError>(),
  }));
  EXPECT_EQ(calls_.Unbalanced(), "h2 of LoadLibraryExW") << "the library stays loaded";
  EXPECT_EQ(created.count, 1);
  EXPECT_TRUE(created.checksRunning);
  EXPECT_EQ(created.type, 0);
  EXPECT_EQ(created.folder, kDataFolder);
  EXPECT_EQ(created.options, nullptr);
  EXPECT_EQ(created.handler, &created);
}

TEST_F(LoaderCalls, ReadARegisteredFolderOfAnyLength) {
  runtime_.registered = L"C:\\" + std::wstring(300, L'x') + L"\\121.0.2277.106";
  EXPECT_EQ(Load(), 0x1234);
  const auto neededBytes = static_cast<DWORD>((runtime_.registered.size() + 1) * sizeof(wchar_t));
  const auto saidRead = [](DWORD bytes) {
    return Said<Api::RegQueryValueExW>(Handle{1}, L"EBWebView", nullptr, Ref{0}, Some{},
                                       Ref{bytes});
  };
  EXPECT_TRUE(calls_.WereAmong({Api::RegQueryValueExW}, {saidRead(520), saidRead(neededBytes)}));
}

TEST_F(LoaderCalls, TryTheUsersOwnRuntimeWhenTheComputerHasNone) {
  constexpr int kChannels = 5;
  for (int nth = 1; nth <= kChannels; ++nth) {
    calls_.Fail(Api::RegOpenKeyExW, ERROR_FILE_NOT_FOUND, nth);
  }
  EXPECT_EQ(Load(), 0x1234);
  EXPECT_EQ(calls_.Count(Api::RegOpenKeyExW), kChannels + 1);
  EXPECT_TRUE(calls_.Had(
      Said<Api::RegOpenKeyExW>(HKEY_CURRENT_USER, kStable, 0, KEY_READ | KEY_WOW64_32KEY, Some{})));
}

TEST_F(LoaderCalls, SkipNonStringValues) {
  for (const int type : {REG_EXPAND_SZ, REG_BINARY, REG_MULTI_SZ}) {
    runtime_.type = static_cast<DWORD>(type);
    EXPECT_EQ(Load(), HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND)) << type;
  }
  EXPECT_EQ(calls_.Unbalanced(), "");
}

TEST(LoaderFailures, AreReportedAndLeaveNothingOpen) {
  const struct {
    Api api;
    DWORD error;
    DWORD told;
  } rows[] = {{Api::RegOpenKeyExW, ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND},
              {Api::RegQueryValueExW, ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND},
              {Api::GetFileAttributesW, ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND},
              {Api::LoadLibraryExW, ERROR_MOD_NOT_FOUND, ERROR_MOD_NOT_FOUND},
              {Api::GetProcAddress, ERROR_PROC_NOT_FOUND, ERROR_PROC_NOT_FOUND}};
  created = {};
  for (const auto& row : rows) {
    const FakeRuntime runtime;
    win32::Calls calls;
    runtime.Answer(calls);
    calls.Fail(row.api, row.error, 0);
    EXPECT_EQ(Load(), HRESULT_FROM_WIN32(row.told)) << Of(row.api).name;
    EXPECT_EQ(calls.Unbalanced(), "") << Of(row.api).name;
  }
  EXPECT_EQ(created.count, 0);
}

}  // namespace
}  // namespace webview
