// Arrays in memory, generated ones, and those in files that are read by position. The runtime has
// their sources; here are the defaults of a front end: types, shapes, and numbers of rows.

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "handles.h"
#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "kv/host/errors.h"
#include "kv/runtime/constants.h"
#include "kv/runtime/datastoreObject.h"
#include "kv/runtime/memory.h"
#include "kv/runtime/npy.h"
#include "kv/runtime/runtime.h"

namespace kv {

namespace {

using runtime::ElementType;
using Source = std::shared_ptr<const runtime::Datastore>;

runtime::CutRequest requestOf(const Partitions& partitions) {
  return {partitions.rows, partitions.sizes};
}

ElementType typeNamed(std::string_view name) {
  const auto type = runtime::elementTypeNamed(name);
  if (!type) {
    std::vector<std::string> names;
    for (const ElementType each : runtime::allElementTypes()) {
      names.emplace_back(runtime::elementTypeName(each));
    }
    host::raise("KALVEX:array:UnknownType", {std::string(name), errors::shownNames(names)});
  }
  return *type;
}

ElementType typeOf(const GeneratedOptions& options, ElementType otherwise) {
  return options.type.empty() ? otherwise : typeNamed(options.type);
}

[[noreturn]] void refuseShape(const std::vector<std::int64_t>& shape, std::string reason) {
  std::string sizes;
  for (const std::int64_t size : shape) {
    sizes += (sizes.empty() ? "" : ", ") + std::to_string(size);
  }
  host::raise("KALVEX:array:BadShape", {sizes, std::move(reason)});
}

/// The dimensions after the first, all of which have a size.
runtime::Dimensions trailingOf(const std::vector<std::int64_t>& shape) {
  std::int64_t most = runtime::kMaxArrayColumns;
  for (const std::int64_t size : std::span(shape).subspan(1)) {
    if (size < 1 || size > most) {
      refuseShape(shape, "the dimensions after the first have from 1 to " +
                             std::to_string(runtime::kMaxArrayColumns) + " elements together");
    }
    most /= size;
  }
  return {shape.begin() + 1, shape.end()};
}

runtime::Dimensions trailingOf(std::int64_t rows, const GeneratedOptions& options) {
  std::vector<std::int64_t> shape{rows};
  shape.insert(shape.end(), options.trailing.begin(), options.trailing.end());
  return trailingOf(shape);
}

/// Bytes between elements of an array in row-major order.
std::vector<std::int64_t> rowMajor(const std::vector<std::int64_t>& shape, std::int64_t size) {
  std::vector<std::int64_t> strides(shape.size());
  for (std::size_t i = shape.size(); i-- > 0;) {
    strides[i] = size;
    size *= shape[i];
  }
  return strides;
}

/// The columns of an array, in column-major order of its trailing dimensions.
std::vector<runtime::MemoryColumn> memoryColumns(Memory memory) {
  const ElementType type = typeNamed(memory.type);
  const bool isText = type == ElementType::String;
  if (memory.shape.empty() || memory.shape.front() < 0) {
    refuseShape(memory.shape, "the number of rows comes first");
  }
  if (isText != static_cast<bool>(memory.textAt) || (isText && memory.shape.size() > 1)) {
    refuseShape(memory.shape, "texts, and nothing else, are one column of texts by row");
  }
  const runtime::Dimensions trailing = trailingOf(memory.shape);
  const auto size = static_cast<std::int64_t>(runtime::elementSize(type));
  if (memory.strides.empty()) {
    memory.strides = rowMajor(memory.shape, size);
  } else if (memory.strides.size() != memory.shape.size()) {
    refuseShape(memory.shape, "each dimension needs a stride");
  }
  std::vector<runtime::MemoryColumn> columns;
  std::vector<std::int64_t> place(trailing.size(), 0);
  for (bool isAtEnd = false; !isAtEnd;) {
    const auto* first = static_cast<const char*>(memory.data);
    for (std::size_t i = 0; i < place.size(); ++i) {
      first += place[i] * memory.strides[i + 1];
    }
    columns.push_back({"", type, first, memory.strides.front(), memory.textAt, memory.owner});
    std::size_t dimension = 0;
    while (dimension < place.size() && ++place[dimension] == trailing[dimension]) {
      place[dimension++] = 0;
    }
    isAtEnd = dimension == place.size();
  }
  return columns;
}

/// A public call whose errors, those of sources included, have the user's line.
template <class Body>
auto sourceCall(Session::Impl& session, const Where& where, const Body& body) {
  return publicCall(session, where, [&] {
    try {
      return body();
    } catch (const errors::StepError& error) {
      host::raise(error.id(), error.arguments());
    }
  });
}

/// The rows of a source: positions, which all sources of as many rows share.
std::shared_ptr<const RowSpace> rowsOf(const runtime::Datastore& source, std::int64_t rows) {
  return std::make_shared<const RowSpace>(source.rowSpace(), source.displayName(), rows);
}

Array arrayOf(const std::shared_ptr<Session::Impl>& session, const Source& source,
              std::int64_t rows, std::vector<std::int64_t> trailing = {}) {
  const host::Value datastore = runtime::datastoreObject(source);
  return makeArray(
      session, host::call("createFromDatastoreBuiltin", {datastore.get()}),
      source->schema().front().type,
      RowTraits{
          .rows = rowsOf(*source, rows), .made = uniqueKey(), .trailing = std::move(trailing)});
}

std::int64_t rowsIn(const runtime::Datastore& source) {
  std::int64_t rows = 0;
  for (std::int64_t partition = 0; partition < source.numPartitions(); ++partition) {
    rows += source.knownRows(partition).value_or(0);
  }
  return rows;
}

Table memoryTable(const std::shared_ptr<Session::Impl>& session, const Source& source) {
  const host::Value datastore = runtime::datastoreObject(source);
  return Table(std::make_shared<const Table::Handle>(
      session, host::call("createFromDatastoreBuiltin", {datastore.get()}),
      columnsOf(datastore.get()), rowsOf(*source, rowsIn(*source)), std::vector<Array>{},
      uniqueKey()));
}

/// The number of rows of an arange, as numpy computes it.
std::int64_t countOf(double start, double stop, double step) {
  const double count = std::ceil((stop - start) / step);
  if (!(count > 0)) {
    return 0;
  }
  return count < static_cast<double>(runtime::kMaxPositions)
             ? static_cast<std::int64_t>(count)
             : runtime::kMaxPositions + 1;  // is refused with that number
}

std::int64_t countOf(std::int64_t start, std::int64_t stop, std::int64_t step) {
  if (step > 0 ? start >= stop : start <= stop) {
    return 0;
  }
  // The distance of two int64 fits in uint64.
  const auto from = static_cast<std::uint64_t>(step > 0 ? start : stop);
  const auto to = static_cast<std::uint64_t>(step > 0 ? stop : start);
  const std::uint64_t size = step > 0 ? static_cast<std::uint64_t>(step)
                                      : std::uint64_t{0} - static_cast<std::uint64_t>(step);
  const std::uint64_t count = (to - from - 1) / size + 1;
  return static_cast<std::int64_t>(
      std::min(count, static_cast<std::uint64_t>(runtime::kMaxPositions) + 1));
}

bool isFloatingType(ElementType type) {
  return type == ElementType::Double || type == ElementType::Single;
}

void requireNumbers(ElementType type) {
  if (type == ElementType::String || type == ElementType::Logical) {
    host::raise("KALVEX:array:NotANumber", {std::string(runtime::elementTypeName(type))});
  }
}

/// A seed of its own for each call.
std::uint64_t drawnSeed() {
  const host::Value factory = host::call("kalvex.bigdata.internal.RandStreamFactory");
  return static_cast<std::uint64_t>(host::toDouble(host::getProperty(factory.get(), "Seed").get()));
}

Array randomArray(const std::shared_ptr<Session::Impl>& session, runtime::RandomNumbers numbers,
                  std::int64_t rows, const GeneratedOptions& options, Where where) {
  return sourceCall(*session, where, [&] {
    const ElementType type = numbers.kind == runtime::RandomNumbers::Kind::Integers
                                 ? ElementType::Int64
                                 : ElementType::Double;
    if (typeOf(options, type) != type) {
      host::raise("KALVEX:array:UnknownType",
                  {options.type, std::string(runtime::elementTypeName(type))});
    }
    const runtime::Dimensions trailing = trailingOf(rows, options);
    numbers.seed = drawnSeed();
    return arrayOf(session,
                   runtime::openRandom(numbers, rows, trailing, requestOf(options.partitions)),
                   rows, options.trailing);
  });
}

}  // namespace

Table Session::fromColumns(std::vector<NamedMemory> columns, const Partitions& partitions,
                           Where where) {
  return sourceCall(*impl_, where, [&] {
    const std::int64_t rows = columns.empty() ? 0 : columns.front().memory.shape.front();
    std::vector<runtime::MemoryColumn> parts;
    for (NamedMemory& column : columns) {
      const std::vector<std::int64_t> shape = column.memory.shape;
      std::vector<runtime::MemoryColumn> part = memoryColumns(std::move(column.memory));
      if (part.size() != 1) {
        refuseShape(shape, "a column of a table has one dimension");
      }
      if (shape.front() != rows) {
        host::raise("KALVEX:array:LengthsDiffer",
                    {std::to_string(rows), std::to_string(shape.front())});
      }
      part.front().name = column.name;
      parts.push_back(std::move(part.front()));
    }
    return memoryTable(impl_, runtime::openColumns(std::move(parts), rows, requestOf(partitions)));
  });
}

Array Session::fromMemory(Memory memory, const Partitions& partitions, Where where) {
  return sourceCall(*impl_, where, [&] {
    const std::vector<std::int64_t> shape = memory.shape;
    std::vector<runtime::MemoryColumn> columns = memoryColumns(std::move(memory));
    return arrayOf(impl_,
                   runtime::openArray(std::move(columns), shape.front(), trailingOf(shape),
                                      requestOf(partitions)),
                   shape.front(), {shape.begin() + 1, shape.end()});
  });
}

Table Session::fromArrow(ArrowArrayStream* stream, const Partitions& partitions,
                         StreamMemory memory, Where where) {
  return sourceCall(*impl_, where, [&] {
    auto* const ledger =
        memory == StreamMemory::Collected ? &runtime::ledgerOfEvaluation() : nullptr;
    const auto read = [&] {
      const auto released = impl_->lease->release();  // the producer may need the session
      return runtime::openArrow(stream, requestOf(partitions), ledger);
    };
    return memoryTable(impl_, read());
  });
}

Array Session::readNpy(const std::vector<std::string>& paths, Where where) {
  return sourceCall(*impl_, where, [&] {
    const Source source = runtime::openNpy(paths);
    return arrayOf(impl_, source, rowsIn(*source), source->emptyChunk(0, {""}).trailing);
  });
}

Array Session::arangeOf(std::int64_t start, std::int64_t stop, std::int64_t step,
                        const GeneratedOptions& options, Where where) {
  return sourceCall(*impl_, where, [&] {
    const ElementType type = typeOf(options, ElementType::Int64);
    requireNumbers(type);
    if (step == 0) {
      host::raise("KALVEX:datastore:ZeroStep");
    }
    const std::int64_t rows = countOf(start, stop, step);
    const runtime::CutRequest request = requestOf(options.partitions);
    const auto first = static_cast<double>(start);
    return arrayOf(
        impl_,
        isFloatingType(type)
            ? runtime::openArange(type, first, first + static_cast<double>(step), rows, request)
            : runtime::openArange(type, start, step, rows, request),
        rows);
  });
}

Array Session::arangeOf(double start, double stop, double step, const GeneratedOptions& options,
                        Where where) {
  return sourceCall(*impl_, where, [&] {
    const ElementType type = typeOf(options, ElementType::Double);
    requireNumbers(type);
    if (step == 0) {
      host::raise("KALVEX:datastore:ZeroStep");
    }
    if (!isFloatingType(type)) {
      host::raise("KALVEX:datastore:OutOfRange",
                  {std::string(runtime::elementTypeName(type)), std::to_string(start),
                   std::to_string(step), std::to_string(countOf(start, stop, step))});
    }
    const std::int64_t rows = countOf(start, stop, step);
    return arrayOf(
        impl_, runtime::openArange(type, start, start + step, rows, requestOf(options.partitions)),
        rows);
  });
}

Array Session::linspace(double start, double stop, std::int64_t rows, bool hasEndpoint,
                        const Partitions& partitions, Where where) {
  return sourceCall(*impl_, where, [&] {
    return arrayOf(
        impl_, runtime::openLinspace(start, stop, rows, hasEndpoint, requestOf(partitions)), rows);
  });
}

Array Session::full(std::int64_t rows, const Operand& value, const GeneratedOptions& options) {
  return sourceCall(*impl_, value.where(), [&] {
    const runtime::ColumnOperand written = operandOf(value);
    if (!written.isWeak) {
      host::raise("KALVEX:array:NotANumber", {"an array"});
    }
    const ElementType type = typeOf(options, written.column.type());
    return arrayOf(impl_,
                   runtime::openFull(written.column, type, rows, trailingOf(rows, options),
                                     requestOf(options.partitions)),
                   rows, options.trailing);
  });
}

Array Session::zeros(std::int64_t rows, const GeneratedOptions& options, Where where) {
  return full(rows, Operand(0.0, where), options);
}

Array Session::ones(std::int64_t rows, const GeneratedOptions& options, Where where) {
  return full(rows, Operand(1.0, where), options);
}

Array Session::random(std::int64_t rows, const GeneratedOptions& options, Where where) {
  return randomArray(impl_, {}, rows, options, where);
}

Array Session::randomNormal(std::int64_t rows, const GeneratedOptions& options, Where where) {
  return randomArray(impl_, {.kind = runtime::RandomNumbers::Kind::Normal}, rows, options, where);
}

Array Session::randomIntegers(std::int64_t rows, std::int64_t low, std::int64_t high,
                              const GeneratedOptions& options, Where where) {
  return randomArray(impl_,
                     {.kind = runtime::RandomNumbers::Kind::Integers, .low = low, .high = high},
                     rows, options, where);
}

void Session::collect(Where where) {
  publicCall(*impl_, where, [&] { impl_->host.collect(); });
}

}  // namespace kv
