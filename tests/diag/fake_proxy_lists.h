#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "diag/proxy_bypass.h"

namespace diag {

// A note's file in memory. Tests can end the program at any step by throwing from `onStep`.
struct MemoryNote : platform::FileDeps {
  std::optional<std::string> bytes;
  bool writes = true;                    // false: writes are lost
  std::function<void()> onStep = [] {};  // before and after a write, and before a deletion

  platform::FileContent Read(const std::wstring&) override { return {bytes.has_value(), bytes}; }
  std::wstring Write(const std::wstring&, const std::string& written) override {
    onStep();
    if (writes) bytes = written;
    onStep();
    return {};
  }
  void Delete(const std::wstring&) override {
    onStep();
    bytes.reset();
  }
  std::vector<std::wstring> ListFolders(const std::wstring&) override { return {}; }
  std::vector<std::wstring> ListFiles(const std::wstring&) override { return {}; }
};

// A user's list; counts writes and notifications.
struct FakeList {
  std::wstring list;
  int writes = 0;
  int tells = 0;
  bool readable = true;
  bool writable = true;

  ProxyListDeps Store(const std::wstring& user = {}) {
    return {[this] { return readable ? std::optional(list) : std::nullopt; },
            [this](const std::wstring& written) {
              ++writes;
              if (writable) list = written;
              return writable;
            },
            [this] { ++tells; }, user};
  }
};

}  // namespace diag
