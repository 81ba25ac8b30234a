#include "settings.h"

namespace browser {

HRESULT Settings::Get(Switch which, BOOL* on) const {
  const HRESULT refused = session_->Check();
  if (FAILED(refused)) return refused;
  if (on == nullptr) return E_POINTER;
  *on = values_[which];
  return S_OK;
}

HRESULT Settings::Put(Switch which, BOOL on) {
  const HRESULT refused = session_->Check();
  if (FAILED(refused)) return refused;
  values_[which] = on != FALSE ? TRUE : FALSE;
  return S_OK;
}

}  // namespace browser
