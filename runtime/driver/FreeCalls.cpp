#include "driver/FreeCalls.h"

#include <algorithm>
#include <type_traits>
#include <utility>

#include "driver/failures.h"
#include "driver/partitionCalls.h"
#include "driver/slicedCalls.h"
#include "kv/host/freeFunctions.h"
#include "values/hostNames.h"

namespace kv::runtime {

using host::Value;

/// The calls of one worker. What it makes in its session is dropped there.
class FreeCalls::Caller final : public UserFunctions {
 public:
  explicit Caller(const FreeCalls& calls) : calls_(calls), session_(calls.sessions_.take()) {}

  ~Caller() override {
    {
      const host::Session::Scope scope(*session_);
      handles_.clear();
      values_.clear();
    }
    calls_.sessions_.giveBack(std::move(session_));
  }
  Caller(const Caller&) = delete;
  Caller& operator=(const Caller&) = delete;

  std::vector<Chunk> call(std::size_t step, const Chunk& rows,
                          std::span<const FunctionInput> inputs, OutputTypes& types) override {
    return here([&] {
      const Function& function = calls_.functions_.at(step);
      return callInSlices(function.spec, handleOf(step, function), argumentsOf(inputs), rows,
                          types);
    });
  }

  PartitionResults callPartition(std::size_t step, const Chunk& rows,
                                 std::span<const FunctionInput> inputs, const PartitionPlace& place,
                                 bool returnsUnused, OutputTypes& types) override {
    return here([&] {
      const Function& function = calls_.functions_.at(step);
      return callOnPartition(function.spec, handleOf(step, function), argumentsOf(inputs), rows,
                             place, returnsUnused, types);
    });
  }

  /// The second functions of reductions are called in the lane.
  ReducedValues reduce(std::size_t /*step*/, std::span<const Chunk> /*partials*/) override {
    return nullptr;
  }
  std::vector<Chunk> partialsOf(std::size_t /*step*/, const ReducedValues& /*reduced*/) override {
    return {};
  }

 private:
  /// Collects garbage at the end of a call that has made objects, by an evaluation as a rule:
  /// values that only cycles of objects hold count towards the limit that all sessions of the
  /// evaluation share, and no other session could free them.
  class Collection {
   public:
    explicit Collection(Caller& caller) : caller_(caller) {}
    ~Collection() {
      if (caller_.session_->liveObjects() > caller_.liveObjects_) {
        caller_.session_->collect();
        caller_.liveObjects_ = caller_.session_->liveObjects();
      }
    }
    Collection(const Collection&) = delete;
    Collection& operator=(const Collection&) = delete;

   private:
    Caller& caller_;
  };

  template <class Call>
  std::invoke_result_t<Call> here(Call&& call) {
    const host::Session::Scope scope(*session_);
    const Collection collection(*this);
    try {
      return withRecordedErrors(std::forward<Call>(call));
    } catch (const errors::RecordedError& error) {
      throw errors::RecordedError(error.record(), nullptr);  // its object ends with the session
    }
  }

  std::vector<CallInput> argumentsOf(std::span<const FunctionInput> inputs) {
    std::vector<CallInput> arguments;
    for (const FunctionInput& input : inputs) {
      arguments.push_back({input.rows, input.rows ? nullptr : valueOf(input.value)});
    }
    return arguments;
  }

  const kxArray* valueOf(std::size_t number) {
    Value& value = values_[number];
    if (value == nullptr) {
      value = host::carry(calls_.stage_.values[number].get());
    }
    return value.get();
  }

  const kxArray* handleOf(std::size_t step, const Function& function) {
    Value& handle = handles_[step];
    if (handle == nullptr) {
      const Value carried = host::carry(function.handle.get());
      const Value stack = host::carry(function.errorStack.get());
      const Value most = host::carry(function.maxNumSlices.get());
      handle = host::call(kFunctionHandle,
                          {carried.get(), host::makeChars("ErrorStack").get(), stack.get(),
                           host::makeChars("MaxNumSlices").get(), most.get()});
    }
    return handle.get();
  }

  const FreeCalls& calls_;
  std::unique_ptr<host::Session> session_;
  std::map<std::size_t, Value> handles_;  ///< by step
  std::map<std::size_t, Value> values_;   ///< by the stage's input
  std::size_t liveObjects_ = 0;           ///< after the last collection
};

FreeCalls::FreeCalls(const AssembledStage& stage, WorkerSessions& sessions)
    : stage_(stage), sessions_(sessions) {
  const std::vector<Step>& steps = stage.stage.steps();
  for (std::size_t step = 0; sessions.canOpen() && step < steps.size(); ++step) {
    const auto isCarryable = [&](const StepLink& link) {
      return !link.isStageInput || host::isCarryable(stage.values[link.index].get());
    };
    if (steps[step].op->facts().callsUser && std::ranges::all_of(steps[step].inputs, isCarryable)) {
      add(step, stage.factoryOf(step));
    }
  }
}

void FreeCalls::add(std::size_t step, const kxArray* factory) {
  const OpSpec& spec = stage_.specOf(step);
  if (!spec.isFree || kxIsA(factory, kGlobalStateFactory)) {
    return;
  }
  const Value function = host::getProperty(factory, "FunctionHandle");
  if (!kxIsA(function.get(), kFunctionHandle)) {
    return;
  }
  functions_.emplace(step, Function{spec, host::getProperty(function.get(), "Handle"),
                                    host::getProperty(function.get(), "ErrorStack"),
                                    host::getProperty(function.get(), "MaxNumSlices")});
}

std::unique_ptr<UserFunctions> FreeCalls::open() const { return std::make_unique<Caller>(*this); }

}  // namespace kv::runtime
