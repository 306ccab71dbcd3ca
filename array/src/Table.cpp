#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string>
#include <utility>

#include "handles.h"

namespace kv {

const std::vector<std::string>& Table::columns() const { return handle_->names; }

Array Table::column(std::string_view name, Where where) const {
  const auto found = std::ranges::find(handle_->names, name);
  if (found == handle_->names.end()) {
    const std::string columns = fmt::format("{}", fmt::join(handle_->names, ", "));
    throw Error("KALVEX:array:UnknownColumn",
                fmt::format("There is no column {}. There are: {}.", name, columns),
                {std::string(name), columns},
                {{where.file_name(), where.function_name(), static_cast<int>(where.line())}});
  }
  const auto index = static_cast<std::size_t>(found - handle_->names.begin());
  const auto session = live(handle_->session);
  return publicCall(*session, where, [&] {
    CallInputs inputs;
    inputs.give(host::makeChars(":"));  // all rows
    inputs.give(host::makeChars(name));
    inputs.give(host::makeLogical(true));  // the content of one variable, not a table of it
    inputs.lend(handle_->value);
    return makeArray(session, host::call("subsrefTabularVar", inputs.list()),
                     {handle_->types[index]});
  });
}

Table Table::filter(const Array& keep, Where where) const {
  requireLogical(keep);
  const auto session = live(handle_->session);
  if (live(keep.handle().session) != session) raiseTwoSessions();
  return publicCall(*session, where, [&] {
    auto rows = host::call("filterslices", {keep.handle().value.get(), handle_->value.get()});
    return Table(std::make_shared<const Table::Handle>(session, std::move(rows), handle_->names,
                                                       handle_->types));
  });
}

}  // namespace kv
