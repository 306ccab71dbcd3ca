#include "support/CoreArrays.h"

#include "kv/runtime/functionNames.h"
#include "kv/runtime/runtime.h"
#include "support/Flights.h"

namespace kv::bench {

namespace {

host::Value openColumn(std::string_view name) {
  const host::Value path = host::makeString(flightsPath());
  const host::Value noTypes = host::makeStringColumn({});
  const host::Value datastore =
      host::call("kalvex.io.CsvDatastore", {path.get(), noTypes.get(), noTypes.get()});
  const host::Value table = host::call("createFromDatastoreBuiltin", {datastore.get()});
  const host::Value allRows = host::makeChars(":");
  const host::Value column = host::makeChars(name);
  const host::Value isContent = host::makeLogical(true);
  return host::call("subsrefTabularVar",
                    {allRows.get(), column.get(), isContent.get(), table.get()});
}

}  // namespace

CoreArrays::CoreArrays() {
  runtime::load(session);
  column_ = openColumn("dep_delay");
  plus_ = host::makeFunctionHandle(runtime::elementFunctionName("plus"));
  one_ = host::makeDouble(1);
}

host::Value CoreArrays::chain(std::size_t count) const {
  host::Value array = matrix::sharedCopy(column_.get());
  for (std::size_t i = 0; i < count; ++i) {
    array = host::call("elementfun", {plus_.get(), array.get(), one_.get()});
  }
  return array;
}

}  // namespace kv::bench
