#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "aggregate/answers.h"
#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "driver/failures.h"
#include "kernel/evaluateArrays.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/ElementFunctions.h"
#include "kv/runtime/functionNames.h"
#include "kv/runtime/runtime.h"
#include "values/chunkValues.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

/// An element function on materialised values: one row is expanded to the rows of the others.
void applyElementFunction(const ElementFunction& function, const Call& call) {
  const int arity = static_cast<int>(function.arity);
  call.expect(1, arity, arity);
  std::vector<Chunk> arrays;
  std::vector<ArrayOperand> operands;
  std::int64_t rows = 1;
  for (int i = 0; i < call.nrhs; ++i) {
    arrays.push_back(toArray(call.in(i)));
  }
  for (const Chunk& array : arrays) {
    const bool isScalar = array.rows() == 1;
    rows = isScalar ? rows : array.rows();
    operands.push_back({&array, isScalar, "an input"});
  }
  call.out(0, toValue(evaluateArrays(function, operands, rows)));
}

/// An aggregate of a materialised value, in the same fixed order as for partitions.
void applyAggregate(const AggregateFunction& function, const AggregateForm& form,
                    const Call& call) {
  call.expect(1, 1, 1);
  const Chunk array = toArray(call.in(0));
  std::vector<AggregatePartial> totals;
  for (const Column& column : array.columns) {
    AggregateState state(function.kind, form.missing);
    state.update(column, array.ordinals);
    totals.push_back(state.finish());
  }
  call.out(0, toValue(answersOf(std::move(totals), form, array.trailing)));
}

/// The forms in which there is a function of an aggregate.
std::vector<AggregateForm> formsOf(const AggregateFunction& function) {
  std::vector<AggregateForm> forms;
  for (const MissingRule missing : {MissingRule::Skip, MissingRule::Propagate}) {
    for (const bool isWhole : {false, true}) {
      forms.push_back({missing, isWhole, false});
      if (function.canNeedRows) {
        forms.push_back({missing, isWhole, true});
      }
    }
  }
  return forms;
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
    for (const AggregateForm& form : formsOf(function)) {
      session.defineFunction(
          aggregateFunctionName(function.name, form),
          [&function, form](const Call& call) { applyAggregate(function, form, call); });
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
