#pragma once

#include <memory>
#include <vector>

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

/// A place in a front end's code: the same `code` and `position` mean the same frame for as long as
/// its stack lives.
struct CodePlace {
  const void* code = nullptr;
  int position = 0;
};

/// The live stack of a front end's users, for a language with a stack of its own.
class UserStack {
 public:
  virtual ~UserStack();
  /// Adds the places of the calling thread's stack, innermost first.
  virtual void capture(std::vector<CodePlace>& places) = 0;
  /// The frame of a place that was just captured.
  virtual StackFrame resolve(const CodePlace& place) = 0;
};

/// Takes the lines of what is recorded in `session` from `stack`, from now on.
void setUserStack(Session& session, std::unique_ptr<UserStack> stack);

}  // namespace kv
