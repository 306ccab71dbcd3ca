#pragma once

#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <vector>

#include "kv/runtime/SessionLease.h"
#include "operator/UserFunctions.h"

namespace kv::runtime {

/// Users' functions for a unit that runs on the client thread: the session is released, and taken
/// back for each call.
class LeasedFunctions final : public UserFunctions {
 public:
  LeasedFunctions(UserFunctions& functions, SessionLease* lease)
      : functions_(functions), lease_(lease) {
    release();
  }

  std::vector<Chunk> call(std::size_t step, const Chunk& rows,
                          std::span<const FunctionInput> inputs, OutputTypes& types) override {
    const Taken taken(*this);
    return functions_.call(step, rows, inputs, types);
  }
  PartitionResults callPartition(std::size_t step, const Chunk& rows,
                                 std::span<const FunctionInput> inputs, const PartitionPlace& place,
                                 bool returnsUnused, OutputTypes& types) override {
    const Taken taken(*this);
    return functions_.callPartition(step, rows, inputs, place, returnsUnused, types);
  }
  ReducedValues reduce(std::size_t step, std::span<const Chunk> partials) override {
    const Taken taken(*this);
    return functions_.reduce(step, partials);
  }
  std::vector<Chunk> partialsOf(std::size_t step, const ReducedValues& reduced) override {
    const Taken taken(*this);
    return functions_.partialsOf(step, reduced);
  }

  bool runsInOrder() const override { return true; }

 private:
  struct Taken {
    explicit Taken(LeasedFunctions& functions) : of(functions) { of.released_.reset(); }
    ~Taken() { of.release(); }
    Taken(const Taken&) = delete;
    Taken& operator=(const Taken&) = delete;
    LeasedFunctions& of;
  };

  void release() { released_ = lease_ != nullptr ? lease_->release() : nullptr; }

  UserFunctions& functions_;
  SessionLease* lease_;
  std::unique_ptr<SessionLease::Released> released_;
};

}  // namespace kv::runtime
