// Here arrays become values. All arrays of a `gather` go to the host in one call, so that they
// share passes. What an evaluation finds out about rows, their number and their places, is noted
// in the row space, which an array shares with those that are made from it row by row.

#include "evaluation.h"

#include <cstdint>
#include <utility>

#include "hostValues.h"
#include "kv/runtime/timeValues.h"

namespace kv {

namespace {

CallInputs asInputs(std::span<const Array> arrays) {
  CallInputs inputs;
  for (const Array& array : arrays) {
    inputs.lend(array.handle().value);
  }
  return inputs;
}

Gathered gatherIn(Session::Impl& session, std::span<const Array> arrays, const Where& where) {
  return publicCall(session, where, [&] {
    Gathered gathered;
    for (const host::Value& output : gatherValues(arrays)) {
      gathered.values.push_back(toValue(output.get()));
    }
    gathered.facts = lastFacts();
    return gathered;
  });
}

}  // namespace

/// Where the rows of a gathered array are, unless a filter has left some out.
void notePlaces(const Array& array) {
  const RowSpace& rows = *array.handle().traits.rows;
  if (!rows.filters().empty()) {
    return;
  }
  host::Value metadata = host::call("hGetMetadata", {array.handle().value.get()});
  if (kxGetClassID(metadata.get()) == kxSTRUCT_CLASS) {
    rows.setPlaces(std::move(metadata));
  }
}

std::vector<host::Value> gatherValues(std::span<const Array> arrays) {
  std::vector<host::Value> values =
      host::callMany("gather", static_cast<int>(arrays.size()), asInputs(arrays).list());
  for (std::size_t i = 0; i < arrays.size(); ++i) {
    const RowTraits& traits = arrays[i].handle().traits;
    if (!traits.isScalar && traits.rows != nullptr) {
      if (traits.rows->places() == nullptr) {
        notePlaces(arrays[i]);
      }
      const kxArray* shaped = runtime::shapedElements(values[i].get());
      traits.rows->setCount(static_cast<std::int64_t>(kxGetM(shaped)));
    }
  }
  return values;
}

Facts lastFacts() {
  const host::Value facts = host::call("kv.lastEvaluation");
  const auto field = [&](std::string_view name) {
    return host::toDouble(kxGetField(facts.get(), 0, name));
  };
  const auto whole = [&](std::string_view name) { return static_cast<std::int64_t>(field(name)); };
  return {whole("rows"),
          static_cast<int>(field("passes")),
          field("seconds"),
          whole("peakBytes"),
          whole("memoryPeakBytes"),
          whole("memoryLimitBytes"),
          whole("skippedRows"),
          whole("spilledBytes"),
          static_cast<int>(field("spillLevels"))};
}

void requireOwn(const Session::Impl& session, std::span<const Array> arrays) {
  if (sessionOf(arrays).get() != &session) {
    raiseTwoSessions();
  }
}

Gathered Session::gather(std::span<const Array> arrays, Where where) {
  if (arrays.empty()) {
    return {};
  }
  requireOwn(*impl_, arrays);
  return gatherIn(*impl_, arrays, where);
}

std::string Session::explain(std::span<const Array> arrays, Where where) {
  requireOwn(*impl_, arrays);
  return publicCall(*impl_, where, [&] {
    return host::toText(host::call("kv.explain", asInputs(arrays).list()).get());
  });
}

Value Array::gather(Where where) const {
  const std::span<const Array> alone(this, 1);
  return std::move(gatherIn(*live(handle_->session), alone, where).values.front());
}

}  // namespace kv
