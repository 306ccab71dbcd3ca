#include "kv/runtime/SourceMoves.h"

#include <utility>

#include "classes/sessionValues.h"
#include "persistence/MovedTables.h"

namespace kv::runtime {

SourceMoves::SourceMoves(std::vector<SourceMove> moves)
    : tables_(std::make_unique<MovedTables>(std::move(moves))) {
  runtimeState().movedTables = tables_.get();
}

SourceMoves::~SourceMoves() { runtimeState().movedTables = nullptr; }

void SourceMoves::throwIfUnused() const { tables_->throwIfUnused(); }

void SourceMoves::rethrowFailure() const { tables_->rethrowFailure(); }

}  // namespace kv::runtime
