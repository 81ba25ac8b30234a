#include "checks/power_checks.h"

namespace checks {
namespace {

std::wstring Minutes(const std::optional<std::uint32_t>& seconds) {
  if (!seconds) return L"未知";
  if (*seconds == 0) return L"从不";
  return std::to_wstring((*seconds + 59) / 60) + L" 分钟后";
}

std::wstring LidAction(const std::optional<std::uint32_t>& action) {
  constexpr const wchar_t* kActions[] = {L"不做任何事", L"睡眠", L"休眠", L"关机"};
  return action && *action < std::size(kActions) ? kActions[*action] : L"未知";
}

std::wstring Text(const PowerSetting& setting,
                  std::wstring (*words)(const std::optional<std::uint32_t>&), bool hasBattery) {
  std::wstring text = L"接电源 " + words(setting.onMains);
  if (hasBattery) text += L"，用电池 " + words(setting.onBattery);
  return text;
}

std::wstring Level(const std::optional<std::uint32_t>& value) {
  return value ? std::to_wstring(*value) : std::wstring(L"未知");
}

bool IsSet(const std::optional<std::uint32_t>& value) {
  return value.value_or(0) != 0;
}

}  // namespace

Outcome JudgePower(const PowerFacts& facts) {
  Outcome outcome;
  if (facts.error != 0) {
    outcome.Note(L"系统没有说出电源设置：错误 " + std::to_wstring(facts.error));
    return outcome;
  }
  outcome.Line(L"睡眠：" + Text(facts.sleepSeconds, Minutes, facts.hasBattery));
  outcome.Line(L"合上盖子：" + Text(facts.lidAction, LidAction, facts.hasBattery));
  outcome.Line(L"USB 选择性暂停（1 为开）：" + Text(facts.usbSuspend, Level, facts.hasBattery));
  outcome.Line(L"Wi-Fi 节能（0 为关，3 为最省电）：" +
               Text(facts.wifiSaving, Level, facts.hasBattery));
  outcome.Line(facts.hasModernStandby ? L"新式待机：有" : L"新式待机：没有");
  const bool sleepsOnBattery = facts.hasBattery && IsSet(facts.sleepSeconds.onBattery);
  if (IsSet(facts.sleepSeconds.onMains) || sleepsOnBattery) {
    outcome.Note(L"没人操作时电脑会睡眠（" + Text(facts.sleepSeconds, Minutes, facts.hasBattery) +
                     L"），远程连接随之中断，唤醒后自动恢复",
                 L"长时间下载程序或监控时，在系统的电源设置里把睡眠改为“从不”。");
  }
  if (facts.hasBattery && (IsSet(facts.lidAction.onMains) || IsSet(facts.lidAction.onBattery))) {
    outcome.Note(
        L"合上盖子会中断连接（" + Text(facts.lidAction, LidAction, facts.hasBattery) + L"）",
        L"连接期间不要合上盖子。");
  }
  if (facts.hasModernStandby) {
    outcome.Note(L"这台电脑用新式待机：屏幕关闭一段时间后网络可能断开",
                 L"连接期间接上电源，不要按电源键关屏幕。");
  }
  return outcome;
}

}  // namespace checks
