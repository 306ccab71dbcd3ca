#pragma once

#include <cstdint>

#include "kv/host/values.h"

/// Random streams of partitions, for functions that draw from the session's stream.
namespace kv::runtime {

/// A new stream for a partition, counted from 0, at its beginning; null where `factory`, a
/// processor factory, needs none.
host::Value streamForPartition(const kxArray* factory, std::int64_t partition);

/// Puts a stream in force as the session's for the span of its life; null changes nothing.
class StreamScope {
 public:
  explicit StreamScope(host::Value stream);
  ~StreamScope();
  StreamScope(const StreamScope&) = delete;
  StreamScope& operator=(const StreamScope&) = delete;

 private:
  host::Value previous_;
};

}  // namespace kv::runtime
