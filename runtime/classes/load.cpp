
#include "classes/classes.h"
#include "kv/bigdata.h"
#include "kv/runtime/runtime.h"
#include "persistence/trust.h"
#include "persistence/validateLoadedGraph.h"
#include "persistence/validateNesting.h"

namespace kv::runtime {

namespace {

/// Registers the core's builtins under their plain names.
void defineBuiltins(host::Session& session) {
  for (const auto& [name, builtin] : kv::bigdata::kOwningBuiltins) {
    session.defineBuiltin(name, builtin);
  }
  for (const auto& [name, builtin] : kv::bigdata::kRawBuiltins) {
    session.defineBuiltin(name, builtin);
  }
}

}  // namespace

void loadCore(host::Session& session) {
  const host::Session::Scope scope(session);
  session.load([&] {
    KVInitialize_libkvbigdata();
    defineBuiltins(session);
    session.addLoadValidator(validateLoadedGraph);
    guardCoreEvaluation(session);
  });
}

void load(host::Session& session) {
  const host::Session::Scope scope(session);
  session.load([&] {
    loadCore(session);
    defineFunctions(session);
    defineRandom(session);
    defineExceptions(session);
    defineContainers(session);
    defineTimes(session);
    defineGraphValues(session);
    defineDatastores(session);
    definePartitioning(session);
    defineConcatenation(session);
    defineArrays(session);
    defineProcessors(session);
    defineTasks(session);
    defineOperations(session);
    defineDirectEvaluation(session);
    defineExecutors(session);
    defineInvalidArrays(session);
    session.addLoadValidator(validateNesting);
    guardRuntimeEvaluation(session);
  });
}

}  // namespace kv::runtime
