#pragma once

#include <memory>
#include <span>
#include <string>
#include <typeinfo>
#include <vector>

#include "driver/Evaluation.h"
#include "foundation/usm.h"
#include "kv/host/values.h"

/// What the runtime keeps in the session store.
namespace kv::runtime {

/// A call that may evaluate an operation at once, of whose inputs some are rows of a source.
struct DirectCall {
  std::span<const kxArray* const> inputs;  ///< the operation's are the last of them
  std::vector<host::Value> metadata{};     ///< of the outputs, once they were evaluated
};

/// What the arrays of another release share that one load brings, which may be many.
struct InvalidGraph {
  std::string release;
  host::Value stack;               ///< where they were loaded
  kcos::COSInterfacePtr future{};  ///< weak, as is the executor
  kcos::COSInterfacePtr executor{};
};

class MovedTables;

struct RuntimeState {
  host::Value defaultExecutor;   ///< made when it is first asked for
  host::Value executorOverride;  ///< null or empty: none
  host::Value globalStream;      ///< made when it is first asked for
  InvalidGraph invalid;
  EvaluationFacts lastEvaluation;
  DirectCall* directCall = nullptr;  ///< whose operation hasn't been evaluated yet; null: none
  std::shared_ptr<InterruptRequests> interrupts = std::make_shared<InterruptRequests>();
  MovedTables* movedTables = nullptr;  ///< while a SourceMoves lives
};

/// The runtime's state in the current session; made at first use, gone with the session.
inline RuntimeState& runtimeState() {
  using Store = foundation::usm::Detail<foundation::usm::scope::Kvm>;
  static const std::size_t id = Store::getNextID(typeid(RuntimeState));
  if (foundation::usm::Slot* slot = Store::find(id, typeid(RuntimeState))) {
    return *static_cast<RuntimeState*>(slot->get());
  }
  auto state = std::make_unique<RuntimeState>();
  foundation::usm::Slot slot(state.release(),
                             [](void* stored) { delete static_cast<RuntimeState*>(stored); });
  return *static_cast<RuntimeState*>(
      Store::findOrInsert(id, typeid(RuntimeState), std::move(slot)).get());
}

}  // namespace kv::runtime
