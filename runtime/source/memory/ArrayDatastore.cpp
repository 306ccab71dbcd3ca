// Memory has no name that another process knows, so arrays in memory are identified by a token: a
// random number of the process and a counter. A description leads to them through a list of all
// that are alive. Generated arrays, and those in files, are identified, and described, by what
// generates them, or where they are.

#include "source/memory/ArrayDatastore.h"

#include <fmt/core.h>

#include <algorithm>
#include <atomic>
#include <cassert>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <random>

#include "column/arrays.h"
#include "column/bytes.h"
#include "column/pieces.h"
#include "kv/errors/StepError.h"
#include "kv/errors/shownText.h"
#include "source/Fingerprint.h"
#include "source/memory/generators.h"

namespace kv::runtime {

namespace {

enum class Form : std::uint8_t { Memory, Described };

Schema schemaOf(const ArrayTable& table) {
  Schema schema;
  for (std::size_t i = 0; i < table.columns.size(); ++i) {
    const ArrayColumn& column = *table.columns[i];
    if (table.isArray() && i > 0) {
      assert(column.type() == schema.front().type);
      schema.front().isNullable |= column.isNullable();
    } else {
      schema.push_back({.name = table.isArray() ? "" : table.names[i],
                        .type = column.type(),
                        .isNullable = column.isNullable(),
                        .fileType = std::string(column.foreignType())});
    }
  }
  return schema;
}

/// What all of the columns are read with; null if there is no such block.
const ArrayBlock* blockOf(const std::vector<std::shared_ptr<const ArrayColumn>>& columns) {
  const ArrayBlock* block = columns.empty() ? nullptr : columns.front()->block();
  const auto isOther = [&](const auto& column) { return column->block() != block; };
  return std::ranges::any_of(columns, isOther) ? nullptr : block;
}

std::int64_t chunkRowsOf(const ArrayTable& table) {
  std::vector<ElementType> types;
  for (const auto& column : table.columns) {
    types.push_back(column->type());
  }
  return pieceRows(types);
}

bool areDescribed(const ArrayTable& table) {
  return std::ranges::all_of(table.columns,
                             [](const auto& column) { return column->isDescribed(); });
}

std::string describeArrays(const ArrayTable& table, bool isForSave = false) {
  ByteWriter bytes;
  bytes.number(static_cast<std::uint8_t>(Form::Described));
  bytes.text(table.name);
  table.cut.write(bytes);
  bytes.texts(table.names);
  writeDimensions(table.trailing, bytes);
  bytes.number<std::uint64_t>(table.columns.size());
  for (const auto& column : table.columns) {
    isForSave ? column->describeForSave(bytes) : column->describe(bytes);
  }
  return bytes.take();
}

/// A description that no other arrays have, in this process or another.
std::string describeMemory() {
  static const auto process = std::uint64_t{std::random_device()()} << 32 | std::random_device()();
  static std::atomic<std::uint64_t> last = 0;
  ByteWriter bytes;
  bytes.number(static_cast<std::uint8_t>(Form::Memory));
  bytes.number(process);
  bytes.number(++last);
  return bytes.take();
}

ArrayTable readArrays(ByteReader& bytes, ReadFileColumn readFileColumn) {
  std::string name = bytes.text();
  ArrayTable table{std::move(name), PositionCut::read(bytes), bytes.texts(), readDimensions(bytes)};
  table.columns.resize(bytes.count());
  const ArrayColumn* previous = nullptr;
  for (auto& column : table.columns) {
    column = readGenerator(bytes, table.cut, previous, readFileColumn);
    previous = column.get();
  }
  const bool isOfOneType = std::ranges::all_of(table.columns, [&](const auto& column) {
    return column->type() == table.columns.front()->type();
  });
  const bool fits = table.isArray()
                        ? isOfOneType && table.columns.size() == columnsIn(table.trailing)
                        : table.columns.size() == table.names.size() && table.trailing.empty();
  if (!fits) {
    bytes.refuse();
  }
  return table;
}

}  // namespace

struct ArrayDatastore::State {
  explicit State(ArrayTable arrays)
      : table(std::move(arrays)),
        schema(schemaOf(table)),
        rowSpace(table.cut.rowSpace()),
        chunkRows(chunkRowsOf(table)),
        isDescribed(areDescribed(table)),
        description(isDescribed ? describeArrays(table) : describeMemory()),
        fingerprint(Fingerprint().add(kMemoryFormat).add(description).digits()) {}

  const ArrayTable table;
  const Schema schema;
  const std::string rowSpace;
  const std::int64_t chunkRows;
  const bool isDescribed;
  const std::string description;  ///< after the name of the format
  const std::string fingerprint;
};

/// The arrays in memory that are alive, by description.
class ArrayDatastore::Living {
 public:
  static Living& all() {
    static auto* living = new Living;  // until the end of the process
    return *living;
  }

  std::shared_ptr<const State> add(ArrayTable table) {
    auto owned = std::make_unique<const State>(std::move(table));
    const std::lock_guard lock(mutex_);
    auto& entry = states_[owned->description];
    std::shared_ptr<const State> state(owned.release(), [this](const State* ended) {
      forget(ended->description);
      delete ended;  // without the lock: an owner may do anything when it is released
    });
    entry = state;
    return state;
  }

  std::shared_ptr<const State> find(const std::string& description) {
    const std::lock_guard lock(mutex_);
    const auto found = states_.find(description);
    return found == states_.end() ? nullptr : found->second.lock();
  }

 private:
  void forget(const std::string& description) {
    const std::lock_guard lock(mutex_);
    states_.erase(description);
  }

  std::mutex mutex_;
  std::map<std::string, std::weak_ptr<const State>> states_;
};

ArrayDatastore::ArrayDatastore(ArrayTable table)
    : state_(areDescribed(table) ? std::make_shared<const State>(std::move(table))
                                 : Living::all().add(std::move(table))) {}

const ArrayTable& ArrayDatastore::table() const { return state_->table; }
const PositionCut& ArrayDatastore::cut() const { return state_->table.cut; }
const Schema& ArrayDatastore::schema() const { return state_->schema; }
std::int64_t ArrayDatastore::chunkRows() const { return state_->chunkRows; }
bool ArrayDatastore::isDescribed() const { return state_->isDescribed; }
const std::string& ArrayDatastore::fingerprint() const { return state_->fingerprint; }
const std::string& ArrayDatastore::rowSpace() const { return state_->rowSpace; }

std::optional<std::int64_t> ArrayDatastore::knownRows(std::int64_t partition) const {
  assert(partition >= 0 && partition < numPartitions());
  return cut().end(partition) - cut().begin(partition);
}

std::unique_ptr<Datastore> ArrayDatastore::copy() const {
  return std::make_unique<ArrayDatastore>(*this);
}

std::string ArrayDatastore::describe() const {
  ByteWriter bytes;
  bytes.text(kMemoryFormat);
  return bytes.take() + state_->description;
}

std::string ArrayDatastore::describeForSave() const {
  assert(isDescribed());
  ByteWriter bytes;
  bytes.text(kMemoryFormat);
  return bytes.take() + describeArrays(table(), true);
}

std::vector<std::string> ArrayDatastore::files() const {
  const auto* block = blockOf(table().columns);
  return block == nullptr ? std::vector<std::string>{} : block->files();
}

std::string ArrayDatastore::fileOf(std::int64_t partition) const {
  const auto* block = blockOf(table().columns);
  return block == nullptr ? std::string() : block->fileOf(cut().begin(partition));
}

ArrayRows ArrayDatastore::select(const std::vector<std::string>& columns) const {
  const ArrayTable& all = table();
  if (all.isArray() && !columns.empty()) {
    return {all.columns, nullptr, all.trailing};
  }
  std::vector<std::shared_ptr<const ArrayColumn>> selected;
  for (const std::string& name : columns) {
    const auto found = std::ranges::find(all.names, name);
    if (found == all.names.end()) {
      errors::raiseStep("KALVEX:datastore:UnknownColumn", {name, errors::shownNames(all.names)});
    }
    selected.push_back(all.columns[static_cast<std::size_t>(found - all.names.begin())]);
    if (selected.back()->type() == ElementType::Unknown) {
      errors::raiseStep("KALVEX:datastore:UnsupportedColumn",
                        {name, std::string(selected.back()->foreignType())});
    }
  }
  return {std::move(selected), std::make_shared<const std::vector<std::string>>(columns), {}};
}

Chunk ArrayDatastore::preview(std::int64_t rows) const {
  assert(rows >= 0);
  std::vector<std::string> columns;
  for (const ColumnInfo& info : schema()) {
    if (info.isReadable()) {
      columns.push_back(info.name);
    }
  }
  const std::int64_t shown = std::min({rows, cut().rows(), chunkRows()});
  return select(columns).read(0, 0, RowOrdinals(0, shown));
}

Chunk ArrayDatastore::emptyChunk(std::int64_t partition,
                                 const std::vector<std::string>& columns) const {
  return select(columns).read(partition, 0, RowOrdinals(0, 0));
}

Chunk ArrayRows::read(std::int64_t partition, std::int64_t first,
                      const RowOrdinals& ordinals) const {
  Chunk chunk{partition, ordinals, names_, {}, trailing_};
  if (const ArrayBlock* block = blockOf(columns_)) {
    std::vector<std::size_t> numbers;
    std::ranges::transform(columns_, std::back_inserter(numbers), &ArrayColumn::numberInBlock);
    chunk.columns = block->read(first, ordinals.rows(), numbers);
    return chunk;
  }
  chunk.columns.reserve(columns_.size());
  for (const auto& column : columns_) {
    chunk.columns.push_back(column->elements(first, ordinals.rows()));
  }
  return chunk;
}

PositionReader::PositionReader(std::vector<ArrayRows> sources, const PositionCut& cut,
                               std::int64_t partition, std::int64_t chunkRows,
                               const CancellationToken& cancellation)
    : sources_(std::move(sources)),
      partition_(partition),
      begin_(cut.begin(partition)),
      next_(begin_),
      end_(cut.end(partition)),
      chunkRows_(chunkRows),
      cancellation_(cancellation) {}

std::vector<Chunk> PositionReader::next() {
  cancellation_.throwIfCancelled();
  const std::int64_t rows = std::min(chunkRows_, end_ - next_);
  std::vector<Chunk> chunks;
  for (std::size_t i = 0; i < sources_.size() && rows > 0; ++i) {
    chunks.push_back(sources_[i].read(partition_, next_, RowOrdinals(next_ - begin_, rows)));
  }
  next_ += rows;
  return chunks;
}

namespace {

/// A partition of one source in its own cut.
class OneSourceReader final : public ChunkReader {
 public:
  explicit OneSourceReader(PositionReader reader) : reader_(std::move(reader)) {}

  std::optional<Chunk> next() override {
    std::vector<Chunk> chunks = reader_.next();
    return chunks.empty() ? std::nullopt : std::optional(std::move(chunks.front()));
  }

 private:
  PositionReader reader_;
};

}  // namespace

std::unique_ptr<ChunkReader> ArrayDatastore::openPartition(
    std::int64_t partition, const std::vector<std::string>& columns,
    const CancellationToken& cancellation) const {
  assert(partition >= 0 && partition < numPartitions());
  return std::make_unique<OneSourceReader>(
      PositionReader({select(columns)}, cut(), partition, chunkRows(), cancellation));
}

std::shared_ptr<const Datastore> openDescribedArrays(ByteReader& bytes,
                                                     ReadFileColumn readFileColumn) {
  if (static_cast<Form>(bytes.number<std::uint8_t>()) == Form::Described) {
    return std::make_shared<ArrayDatastore>(readArrays(bytes, readFileColumn));
  }
  ByteWriter description;
  description.number(static_cast<std::uint8_t>(Form::Memory));
  description.number(bytes.number<std::uint64_t>());
  description.number(bytes.number<std::uint64_t>());
  auto state = ArrayDatastore::Living::all().find(description.take());
  if (state == nullptr) {
    bytes.refuse();
  }
  return std::shared_ptr<const Datastore>(new ArrayDatastore(std::move(state)));
}

}  // namespace kv::runtime
