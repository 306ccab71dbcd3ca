#include <algorithm>
#include <string>
#include <vector>

#include "handles.h"
#include "kv/runtime/Column.h"
#include "kv/runtime/functionNames.h"

namespace kv {

namespace {

using runtime::ElementType;

/// The function draws from the stream of its partition, and its own seed from the session's stream.
host::Value randomOptions() {
  const host::Value label = host::makeChars("RequiresRandState");
  const host::Value yes = host::makeLogical(true);
  return host::call("kalvex.bigdata.internal.PartitionedArrayOptions", {label.get(), yes.get()});
}

/// The name of a column that gives the number of rows. Texts are avoided because they read slower.
const std::string& countedColumn(const TableColumns& table) {
  const auto isQuick = [](ElementType type) { return type != ElementType::String; };
  const auto found = std::ranges::find_if(table.types, isQuick);
  const auto index = found == table.types.end() ? 0 : found - table.types.begin();
  return table.names.at(static_cast<std::size_t>(index));
}

}  // namespace

Array Table::rand(Where where) const {
  const auto session = live(handle_->session);
  const Array counted = column(countedColumn(*handle_->columns), where);
  return publicCall(*session, where, [&] {
    CallInputs call;
    call.give(randomOptions());
    call.give(host::makeFunctionHandle(runtime::kRandomRowsFunction));
    call.lend(counted.handle().value);
    return makeArray(session, host::call("elementfun", call.list()), ElementType::Double,
                     RowTraits{.isColumn = true, .rows = handle_->rows, .made = uniqueKey()});
  });
}

void Session::seed(std::uint64_t seed, Where where) {
  publicCall(*impl_, where, [&] {
    const host::Value number = host::makeDouble(static_cast<double>(seed));
    const host::Value stream = host::call("RandStream", {number.get()});
    host::callMany("RandStream.setGlobalStream", 0, std::vector<const kxArray*>{stream.get()});
  });
}

}  // namespace kv
