#include "remote/password_keeper.h"

namespace remote {

PasswordKeeper::Session PasswordKeeper::Begin() {
  const platform::MutexLock held(lock_);
  return ++newest_;
}

void PasswordKeeper::End() {
  const platform::MutexLock held(lock_);
  hasEnded_ = true;
}

bool PasswordKeeper::MayGoOn(Session session) const {
  const platform::MutexLock held(lock_);
  return IsCurrent(session);
}

bool PasswordKeeper::Do(Session session, const std::function<void()>& step) {
  const platform::MutexLock held(lock_);
  if (!IsCurrent(session)) return false;
  step();
  return true;
}

bool PasswordKeeper::CopyPassword(Session session, const std::wstring& password) {
  const platform::MutexLock held(lock_);
  return IsCurrent(session) && copyToClipboard_(password);
}

}  // namespace remote
