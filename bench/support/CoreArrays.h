#pragma once

#include <cstddef>

#include "kv/host/session.h"
#include "kv/host/values.h"

namespace kv::bench {

/// A session with core and runtime, and a column of the flights, as a front end reaches them: by
/// name. No data is read but the header.
///
/// Lives: `session` is the thread's current one for as long as this lives.
class CoreArrays {
 public:
  CoreArrays();

  /// What `count` times x = x + 1 makes of the column.
  host::Value chain(std::size_t count) const;

  host::Session session;

 private:
  host::Session::Scope scope_{session};
  host::Value column_;
  host::Value plus_;
  host::Value one_;
};

}  // namespace kv::bench
