#include "shell/job.h"

#include <exception>

#include "text/utf8.h"

namespace shell {
namespace {

constexpr wchar_t kErrorPrefix[] = L"Error: ";
constexpr wchar_t kUnknownError[] = L"Unknown error.";
constexpr wchar_t kUpdateCheckPrefix[] = L"自动更新检查异常：";

}  // namespace

std::wstring RunJob(const Job& job, settings::Settings& settings, tunnel::Tunnel& tunnel) {
  try {
    return job(settings, tunnel);
  } catch (const std::exception& error) {
    return kErrorPrefix + text::FromUtf8(error.what());
  } catch (...) {
    return kUnknownError;
  }
}

std::wstring RunUpdateCheck(const UpdateCheck& check, const settings::Settings& settings) {
  try {
    return check(settings);
  } catch (const std::exception& error) {
    return kUpdateCheckPrefix + text::FromUtf8(error.what());
  } catch (...) {
    return std::wstring(kUpdateCheckPrefix) + kUnknownError;
  }
}

}  // namespace shell
