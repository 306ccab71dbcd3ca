#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "driver/failures.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/ElementFunctions.h"
#include "kv/runtime/functionNames.h"
#include "kv/runtime/runtime.h"
#include "values/columnValues.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

/// An element function on whole values: scalars are expanded to the rows of the others.
void applyElementFunction(const ElementFunction& function, const Call& call) {
  const int arity = static_cast<int>(function.arity);
  call.expect(1, arity, arity);
  std::vector<Operand> operands;
  std::int64_t rows = 1;
  for (int i = 0; i < call.nrhs; ++i) {
    Column column = toColumn(call.in(i));
    const bool isScalar = column.rows() == 1;
    rows = isScalar ? rows : column.rows();
    operands.push_back({std::move(column), isScalar});
  }
  call.out(0, toValue(evaluate(function, operands, rows)));
}

/// An aggregate of a whole value, in the same fixed order as for partitions.
void applyAggregate(const AggregateFunction& function, MissingRule missing, const Call& call) {
  call.expect(1, 1, 1);
  const Column column = toColumn(call.in(0));
  AggregateState state(function.kind, missing);
  state.update(column, RowOrdinals(0, column.rows()));
  const std::array partials{state.finish()};
  call.out(0, toValue(combinePartials(function.kind, partials)));
}

/// copy(value): values are immutable; for an object, the host calls the object's own method.
void copyValue(const Call& call) {
  call.expect(1, 1, 1);
  call.out(0, matrix::sharedCopy(call.in(0)));
}

/// version("-release")
void version(const Call& call) {
  call.expect(1, 0, 1);
  call.out(0, host::makeChars(release()));
}

void defineBuiltInFunctions(host::Session& session) {
  for (const ElementFunction& function : elementFunctions()) {
    session.defineFunction(elementFunctionName(function.name),
                           [&function](const Call& call) { applyElementFunction(function, call); });
  }
  for (const AggregateFunction& function : aggregateFunctions()) {
    for (const MissingRule missing : {MissingRule::Skip, MissingRule::Propagate}) {
      session.defineFunction(
          aggregateFunctionName(function.name, missing),
          [&function, missing](const Call& call) { applyAggregate(function, missing, call); });
    }
  }
}

}  // namespace

std::string_view release() noexcept { return KV_VERSION; }

void defineFunctions(host::Session& session) {
  defineBuiltInFunctions(session);
  session.defineFunction("copy", copyValue);
  session.defineFunction("version", version);
  define(session,
         {.name = kTallProfiler,
          .methods = {staticMethod(
              "enabled", [](const Call& call) { call.out(0, host::makeLogical(false)); }, 0, 0)}});
}

}  // namespace kv::runtime
