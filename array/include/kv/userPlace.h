#pragma once

#include "kv/array.h"

namespace kv {

/// Sets, for its lifetime, the place where the user of a session wrote what is being recorded. It
/// is for front ends with a language of their own, whose users have no line of C++. Plans and
/// errors show it.
///
/// Lives:   within the session's life; one at a time.
/// Threads: that of the calls to which it applies.
class UserPlace {
 public:
  UserPlace(Session& session, StackFrame place);
  ~UserPlace();
  UserPlace(const UserPlace&) = delete;
  UserPlace& operator=(const UserPlace&) = delete;

 private:
  Session& session_;
};

}  // namespace kv
