#pragma once

#include <span>
#include <vector>

#include "execution/assembleStage.h"
#include "execution/runUnit.h"

namespace kv::runtime {

/// Runs users' functions in the current session, through the FunctionHandle of the operation.
///
/// Lives: the stage outlives it.
class SessionFunctions final : public UserFunctions {
 public:
  explicit SessionFunctions(const AssembledStage& stage) : stage_(stage) {}

  /// Errors: what the function raises, with the line where its array was made;
  ///         "KALVEX:array:MissingOutput" if it gives fewer outputs than the operation has.
  std::vector<Column> call(std::size_t step, std::span<const Operand> inputs) override;

 private:
  const AssembledStage& stage_;
};

}  // namespace kv::runtime
