#include <mutex>

#include "classes/classes.h"
#include "classes/messages.h"
#include "kv/bigdata.h"
#include "kv/runtime/runtime.h"

namespace kv::runtime {
namespace {

/// The core's builtins, under their plain names.
void defineBuiltins(host::Session& session) {
  namespace core = ::bigdata;
  session.defineBuiltin("createFromConstantBuiltin", core::lazyeval::createFromConstantBuiltin);
  session.defineBuiltin("createFromDatastoreBuiltin", core::lazyeval::createFromDatastoreBuiltin);
  session.defineBuiltin("createFromFutureBuiltin", core::lazyeval::createFromFutureBuiltin);
  session.defineBuiltin("applyOperationBuiltin", core::lazyeval::applyOperationBuiltin);
  session.defineBuiltin("createPartitionStrategyBuiltin",
                        core::executor::createPartitionStrategyBuiltin);
  session.defineBuiltin("alignPartitionStrategyBuiltin",
                        core::executor::alignPartitionStrategyBuiltin);
  session.defineBuiltin("alignPartitionMetadataBuiltin", core::alignPartitionMetadataBuiltin);
  session.defineBuiltin("vertcatPartitionMetadataBuiltin", core::vertcatPartitionMetadataBuiltin);
  session.defineBuiltin("hasInternalStackFramesBuiltin", core::hasInternalStackFramesBuiltin);
  session.defineBuiltin("userStackBuiltin", core::userStackBuiltin);
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
