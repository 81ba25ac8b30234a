#pragma once

#include <optional>
#include <string>
#include <vector>

#include "diag/proxy_bypass.h"

namespace diag {

// A note's file in memory, which says what the program's sudden end would leave of it.
struct MemoryNote {
  std::optional<std::string> bytes;
  bool writes = true;  // whether the disk takes anything

  ProxyNoteDisk Disk() {
    return {[this] { return bytes; },
            [this](const std::string& written) {
              if (writes) bytes = written;
            },
            [this] { bytes.reset(); }};
  }
};

// A list of some user, and how often it was written, and programs were told.
struct FakeList {
  std::wstring list;
  int writes = 0;
  int tells = 0;
  bool readable = true;
  bool writable = true;

  ProxyOverrideStore Store(const std::wstring& user = {}) {
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
