#include <string>
#include <vector>

#include "evaluation.h"
#include "handles.h"

namespace kv {

namespace {

/// Records the writing of arrays as columns with these names, and writes if that is asked for.
Array writeArrays(Session& session, std::span<const Array> arrays,
                  const std::vector<std::string>& names, const std::string& path,
                  const WriteOptions& options, const Where& where) {
  requireOwn(session.impl(), arrays);
  const Array rows = publicCall(session.impl(), where, [&] {
    CallInputs inputs;
    inputs.give(host::makeString(path));
    inputs.give(host::makeString(options.format));
    inputs.give(host::makeLogical(options.overwrite));
    inputs.give(host::makeStringColumn(names));
    inputs.give(host::makeStringColumn(options.partitionBy));
    for (const Array& array : arrays) {
      inputs.lend(array.handle().value);
    }
    return makeArray(session.shared(), host::call("kv.write", inputs.list()),
                     runtime::ElementType::Int64, {.isScalar = true, .made = uniqueKey()});
  });
  if (options.compute) {
    rows.gather(where);
  }
  return rows;
}

}  // namespace

Array Session::write(const Table& table, const std::string& path, const WriteOptions& options,
                     Where where) {
  std::vector<Array> columns;
  for (const std::string& name : table.columns()) {
    columns.push_back(table.column(name, where));
  }
  return writeArrays(*this, columns, table.columns(), path, options, where);
}

Array Session::write(const Array& array, const std::string& path, const WriteOptions& options,
                     Where where) {
  return writeArrays(*this, std::span(&array, 1), {}, path, options, where);
}

}  // namespace kv
