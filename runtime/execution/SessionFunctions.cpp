#include "execution/SessionFunctions.h"

#include <string>

#include "execution/randomStreams.h"
#include "kv/host/errors.h"
#include "values/columnValues.h"

namespace kv::runtime {

std::vector<Column> SessionFunctions::call(std::size_t step, std::int64_t partition,
                                           std::span<const Operand> inputs) {
  const OpSpec& spec = *stage_.stage().steps()[step].spec;
  const host::Value factory = stage_.factoryOf(step);
  const host::Value handle = host::getProperty(factory.get(), "FunctionHandle");
  std::vector<host::Value> values;
  std::vector<const kxArray*> arguments{handle.get()};
  for (const Operand& input : inputs) {
    values.push_back(toValue(input.column));
    arguments.push_back(values.back().get());
  }
  PartitionStream& random = streams_[step];
  if (random.partition != partition) {
    random = {partition, streamForPartition(factory.get(), partition)};
  }
  const StreamScope scope(matrix::sharedCopy(random.stream.get()));
  const std::vector<host::Value> outputs =
      host::callMany("feval", static_cast<int>(spec.numOutputs), arguments);
  std::vector<Column> columns;
  for (std::size_t i = 0; i < spec.numOutputs; ++i) {
    if (i >= outputs.size() || outputs[i] == nullptr) {
      host::raise("KALVEX:array:MissingOutput",
                  {spec.label, std::to_string(i + 1), std::to_string(spec.numOutputs)});
    }
    columns.push_back(toColumn(outputs[i].get()));
  }
  return columns;
}

}  // namespace kv::runtime
