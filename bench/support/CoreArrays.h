#pragma once

#include <cstddef>

#include "kv/host/session.h"
#include "kv/host/values.h"

namespace kv::bench {

/// A session with core and runtime, and a column of the flights, accessed by name as a front end
/// does. No data but the header is read.
///
/// Lives: `session` is the thread's current one for as long as this lives.
class CoreArrays {
 public:
  CoreArrays();

  /// The column after `count` times x = x + 1.
  host::Value chain(std::size_t count) const;

  host::Session session;

 private:
  host::Session::Scope scope_{session};
  host::Value column_;
  host::Value plus_;
  host::Value one_;
};

}  // namespace kv::bench
