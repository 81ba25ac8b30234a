#pragma once

#include <cstddef>
#include <functional>
#include <stop_token>
#include <string>

#include "platform/windows_sdk.h"

namespace service {

// Writes `bytes` with one call; gives how many the file has taken.
using FileWriter = std::function<std::size_t(HANDLE file, const std::string& bytes)>;

// The system's.
std::size_t WriteToFile(HANDLE file, const std::string& bytes);

// DownloadFile with its writes handed in, so that a disk may be full.
bool DownloadFileWith(const FileWriter& write, const std::wstring& url,
                      const std::wstring& targetPath, const std::stop_token& stop);

}  // namespace service
