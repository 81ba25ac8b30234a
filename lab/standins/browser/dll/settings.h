#pragma once

#include <array>
#include <memory>

#include "abi_environment.h"
#include "com.h"
#include "session.h"

namespace browser {

// The switches of one page. They can be read and set; only IsWebMessageEnabled has an effect here.
class Settings final : public ComObject<ICoreWebView2Settings, &kIidSettings> {
 public:
  enum Switch : size_t {
    kScript,
    kWebMessage,
    kScriptDialogs,
    kStatusBar,
    kDevTools,
    kContextMenus,
    kHostObjects,
    kZoomControl,
    kErrorPage,
    kSwitches,
  };

  explicit Settings(std::shared_ptr<Session> session) : session_(std::move(session)) {
    values_.fill(TRUE);
  }
  [[nodiscard]] bool IsOn(Switch which) const { return values_[which] != FALSE; }

#define LAB_SWITCH(name, which)                             \
  HRESULT STDMETHODCALLTYPE get_##name(BOOL* on) override { \
    return Get(which, on);                                  \
  }                                                         \
  HRESULT STDMETHODCALLTYPE put_##name(BOOL on) override {  \
    return Put(which, on);                                  \
  }
  LAB_SWITCH(IsScriptEnabled, kScript)
  LAB_SWITCH(IsWebMessageEnabled, kWebMessage)
  LAB_SWITCH(AreDefaultScriptDialogsEnabled, kScriptDialogs)
  LAB_SWITCH(IsStatusBarEnabled, kStatusBar)
  LAB_SWITCH(AreDevToolsEnabled, kDevTools)
  LAB_SWITCH(AreDefaultContextMenusEnabled, kContextMenus)
  LAB_SWITCH(AreHostObjectsAllowed, kHostObjects)
  LAB_SWITCH(IsZoomControlEnabled, kZoomControl)
  LAB_SWITCH(IsBuiltInErrorPageEnabled, kErrorPage)
#undef LAB_SWITCH

 private:
  ~Settings() = default;
  void Destroy() override {
    delete this;
  }
  HRESULT Get(Switch which, BOOL* on) const;
  HRESULT Put(Switch which, BOOL on);

  const std::shared_ptr<Session> session_;
  std::array<BOOL, kSwitches> values_{};
};

}  // namespace browser
