#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <typeinfo>
#include <vector>

#include "column/MemoryLedger.h"
#include "driver/Evaluation.h"
#include "foundation/usm.h"
#include "kv/host/values.h"

/// The runtime's data in the session store.
namespace kv::runtime {

/// A call that may evaluate an operation at once; its inputs may have rows of a source.
struct DirectCall {
  std::span<const kxArray* const> inputs;  ///< the operation's inputs are the last of them
  std::vector<host::Value> metadata{};     ///< of the outputs, after their evaluation
};

/// The objects that the arrays of another release from one load, maybe many, share.
struct InvalidGraph {
  std::string release;
  host::Value stack;               ///< where they were loaded
  kcos::COSInterfacePtr future{};  ///< weak, as is the executor
  kcos::COSInterfacePtr executor{};
};

class MovedTables;

struct RuntimeState {
  host::Value defaultExecutor;   ///< made on first use
  host::Value executorOverride;  ///< null or empty: none
  host::Value globalStream;      ///< made on first use
  InvalidGraph invalid;
  EvaluationFacts lastEvaluation;
  int threads = 0;                ///< for evaluations; 0: the default of the process
  std::int64_t memoryLimit = 0;   ///< in bytes; 0: the default of the process
  std::string scratchFolder;      ///< empty: the default of the process
  std::int64_t scratchLimit = 0;  ///< in bytes; 0: the default of the process
  MemoryLedger::Owner ledger = MemoryLedger::open(*arrow::default_memory_pool());
  SessionLease* lease = nullptr;     ///< for evaluations; null: none
  DirectCall* directCall = nullptr;  ///< the call whose operation is to be evaluated; null for none
  std::shared_ptr<InterruptRequests> interrupts = std::make_shared<InterruptRequests>();
  MovedTables* movedTables = nullptr;  ///< while a SourceMoves lives
};

/// The runtime's state in the current session; made on first use, destroyed with the session.
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
