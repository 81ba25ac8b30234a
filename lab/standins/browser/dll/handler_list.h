#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "com.h"

namespace browser {

// The handlers of one event, in the order they were added. One thread.
template <typename HandlerType>
class HandlerList {
 public:
  HRESULT Add(HandlerType* handler, EventRegistrationToken* token) {
    if (handler == nullptr || token == nullptr) return E_POINTER;
    token->value = ++lastToken_;
    handlers_.emplace_back(token->value, ComPtr<HandlerType>(handler));
    return S_OK;
  }

  // A token that is not known is no error.
  HRESULT Remove(EventRegistrationToken token) {
    std::erase_if(handlers_, [&](const auto& entry) { return entry.first == token.value; });
    return S_OK;
  }

  void Clear() { handlers_.clear(); }

  // Calls each handler that is there now; a handler may add and remove some meanwhile.
  template <typename... Arguments>
  void Invoke(Arguments... arguments) const {
    const auto now = handlers_;
    for (const auto& [token, handler] : now) handler->Invoke(arguments...);
  }

 private:
  int64_t lastToken_ = 0;
  std::vector<std::pair<int64_t, ComPtr<HandlerType>>> handlers_;
};

}  // namespace browser
