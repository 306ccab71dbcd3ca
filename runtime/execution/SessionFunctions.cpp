#include "execution/SessionFunctions.h"

#include "execution/randomStreams.h"
#include "execution/slicedCalls.h"

namespace kv::runtime {

std::vector<Column> SessionFunctions::call(std::size_t step, std::int64_t partition,
                                           std::span<const Operand> inputs) {
  const host::Value factory = stage_.factoryOf(step);
  const host::Value handle = host::getProperty(factory.get(), "FunctionHandle");
  PartitionStream& random = streams_[step];
  if (random.partition != partition) {
    random = {partition, streamForPartition(factory.get(), partition)};
  }
  const StreamScope scope(matrix::sharedCopy(random.stream.get()));
  return callInSlices(*stage_.stage().steps()[step].spec, handle.get(), inputs);
}

}  // namespace kv::runtime
