#include "rustdesk/plan.h"

#include <cwchar>

#include "text/strings.h"
#include "text/utf8.h"

namespace rustdesk {
namespace {

int Number(const std::wstring& value) {
  return static_cast<int>(std::wcstol(value.c_str(), nullptr, 10));
}

std::chrono::milliseconds Milliseconds(const std::wstring& value) {
  return std::chrono::milliseconds(Number(value));
}

void Take(const std::wstring& name, const std::wstring& value, Plan& plan) {
  if (name == L"title") plan.title = value;
  if (name == L"firstTitle") plan.firstTitle = value;
  if (name == L"titleAfterMs") plan.titleAfter = Milliseconds(value);
  if (name == L"showAfterMs") plan.showAfter = Milliseconds(value);
  if (name == L"left") plan.left = Number(value);
  if (name == L"lifeMs") plan.life = Milliseconds(value);
  if (name == L"shape" && value == L"owned") plan.shape = Shape::Owned;
}

}  // namespace

Plan ReadPlan(std::string_view bytes) {
  Plan plan;
  for (const std::wstring& line : text::SplitLines(text::FromUtf8(bytes))) {
    const std::size_t sign = line.find(L'=');
    if (sign != std::wstring::npos) Take(line.substr(0, sign), line.substr(sign + 1), plan);
  }
  return plan;
}

}  // namespace rustdesk
