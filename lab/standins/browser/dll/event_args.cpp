#include "event_args.h"

#include "text.h"

namespace browser {

HRESULT WebMessageArgs::get_Source(LPWSTR* source) {
  return CopyForCaller(message_.source, source);
}

HRESULT WebMessageArgs::get_WebMessageAsJson(LPWSTR* json) {
  return CopyForCaller(message_.json, json);
}

HRESULT WebMessageArgs::TryGetWebMessageAsString(LPWSTR* text) {
  if (text == nullptr) return E_POINTER;
  *text = nullptr;
  return message_.isText ? CopyForCaller(message_.text, text) : E_INVALIDARG;
}

HRESULT NavigationCompletedArgs::get_IsSuccess(BOOL* success) {
  if (success == nullptr) return E_POINTER;
  *success = navigation_.success ? TRUE : FALSE;
  return S_OK;
}

HRESULT NavigationCompletedArgs::get_WebErrorStatus(COREWEBVIEW2_WEB_ERROR_STATUS* status) {
  if (status == nullptr) return E_POINTER;
  *status = navigation_.status;
  return S_OK;
}

HRESULT NavigationCompletedArgs::get_NavigationId(UINT64* id) {
  if (id == nullptr) return E_POINTER;
  *id = navigation_.id;
  return S_OK;
}

HRESULT ProcessFailedArgs::get_ProcessFailedKind(COREWEBVIEW2_PROCESS_FAILED_KIND* kind) {
  if (kind == nullptr) return E_POINTER;
  *kind = kind_;
  return S_OK;
}

}  // namespace browser
