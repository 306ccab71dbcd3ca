#include <mutex>

#include "classes/classes.h"
#include "classes/messages.h"
#include "kv/bigdata.h"
#include "kv/runtime/runtime.h"

namespace kv::runtime {
namespace {

/// The core's builtins, under their plain names.
void defineBuiltins(host::Session& session) {
  using namespace bigdata;  // NOLINT(google-build-using-namespace): a table of its names
  session.defineBuiltin("createFromConstantBuiltin", lazyeval::createFromConstantBuiltin);
  session.defineBuiltin("createFromDatastoreBuiltin", lazyeval::createFromDatastoreBuiltin);
  session.defineBuiltin("createFromFutureBuiltin", lazyeval::createFromFutureBuiltin);
  session.defineBuiltin("applyOperationBuiltin", lazyeval::applyOperationBuiltin);
  session.defineBuiltin("createPartitionStrategyBuiltin", executor::createPartitionStrategyBuiltin);
  session.defineBuiltin("alignPartitionStrategyBuiltin", executor::alignPartitionStrategyBuiltin);
  session.defineBuiltin("alignPartitionMetadataBuiltin", alignPartitionMetadataBuiltin);
  session.defineBuiltin("vertcatPartitionMetadataBuiltin", vertcatPartitionMetadataBuiltin);
  session.defineBuiltin("hasInternalStackFramesBuiltin", hasInternalStackFramesBuiltin);
  session.defineBuiltin("userStackBuiltin", userStackBuiltin);
}

}  // namespace

void load(host::Session& session) {
  static std::once_flag messagesEntered;
  std::call_once(messagesEntered, enterMessages);
  const host::Session::Scope scope(session);
  session.load(KVInitialize_libkvbigdata);
  defineBuiltins(session);
  defineFunctions(session);
  defineExceptions(session);
  defineContainers(session);
  defineDatastores(session);
  definePartitioning(session);
  defineArrays(session);
  defineProcessors(session);
  defineTasks(session);
  defineOperations(session);
  defineExecutors(session);
}

}  // namespace kv::runtime
