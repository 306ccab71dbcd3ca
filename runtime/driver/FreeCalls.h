#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <vector>

#include "driver/WorkerSessions.h"
#include "driver/assembleStage.h"
#include "executor/FreeFunctions.h"
#include "operator/OpSpec.h"

namespace kv::runtime {

/// Calls the free functions of a stage in sessions of the workers, each through a FunctionHandle of
/// its own. Values that calls take besides rows are carried over; their data is shared. A step that
/// takes an object, or draws random numbers, isn't free.
///
/// Threads: made and destroyed on the client thread, with the user's session current.
/// Lives:   stage and sessions outlive it.
class FreeCalls final : public FreeFunctions {
 public:
  FreeCalls(const AssembledStage& stage, WorkerSessions& sessions);

  bool isFree(std::size_t step) const override { return functions_.contains(step); }
  std::unique_ptr<UserFunctions> open() const override;

 private:
  class Caller;

  /// The function of a step, in the user's session.
  struct Function {
    OpSpec spec;
    host::Value handle;
    host::Value errorStack;
    host::Value maxNumSlices;
  };

  void add(std::size_t step, const kxArray* factory);

  const AssembledStage& stage_;
  WorkerSessions& sessions_;
  std::map<std::size_t, Function> functions_;
};

}  // namespace kv::runtime
