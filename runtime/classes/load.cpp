#include <mutex>

#include "classes/classes.h"
#include "classes/messages.h"
#include "kv/bigdata.h"
#include "kv/runtime/runtime.h"

namespace kv::runtime {
namespace {

/// The core's builtins, under their plain names.
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
  session.load(KVInitialize_libkvbigdata);
  defineBuiltins(session);
}

void load(host::Session& session) {
  static std::once_flag messagesEntered;
  std::call_once(messagesEntered, enterMessages);
  const host::Session::Scope scope(session);
  loadCore(session);
  defineFunctions(session);
  defineRandom(session);
  defineExceptions(session);
  defineContainers(session);
  defineGraphs(session);
  defineDatastores(session);
  definePartitioning(session);
  defineConcatenation(session);
  defineArrays(session);
  defineProcessors(session);
  defineTasks(session);
  defineOperations(session);
  defineExecutors(session);
}

}  // namespace kv::runtime
