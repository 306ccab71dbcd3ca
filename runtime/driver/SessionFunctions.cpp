#include "driver/SessionFunctions.h"

#include "driver/randomStreams.h"
#include "driver/slicedCalls.h"
#include "engine/failures.h"

namespace kv::runtime {

std::vector<Column> SessionFunctions::call(std::size_t step, const Chunk& rows,
                                           std::span<const FunctionInput> inputs,
                                           OutputTypes& types) {
  return withRecordedErrors([&] {
    std::vector<CallInput> arguments;
    for (const FunctionInput& input : inputs) {
      arguments.push_back({input.rows, input.rows ? nullptr : stage_.values[input.value].get()});
    }
    const host::Value factory = stage_.factoryOf(step);
    const host::Value handle = host::getProperty(factory.get(), "FunctionHandle");
    PartitionStream& random = streams_[step];
    if (random.partition != rows.partition) {
      random = {rows.partition, streamForPartition(factory.get(), rows.partition)};
    }
    const StreamScope scope(matrix::sharedCopy(random.stream.get()));
    return callInSlices(*stage_.stage().steps()[step].spec, handle.get(), arguments, rows, types);
  });
}

}  // namespace kv::runtime
