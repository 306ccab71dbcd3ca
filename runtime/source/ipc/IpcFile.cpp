// Where batches are, and how many rows and nulls each has, is read from their headers: the list at
// the end of a file in the file format, and the messages themselves in a stream. A file that was
// cut off is found here, not after an hour of reading; a stream that was cut between two messages
// can't be, as it needs no mark at its end.

#include "source/ipc/IpcFile.h"

#include <arrow/buffer.h>
#include <arrow/ipc/message.h>
#include <arrow/ipc/options.h>
#include <arrow/ipc/reader.h>
#include <arrow/type.h>
#include <arrow/util/utf8.h>
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <optional>
#include <string>
#include <utility>

#include "column/allocate.h"
#include "column/elementTypes.h"
#include "column/pool.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/PositionCut.h"
#include "source/Fingerprint.h"
#include "source/arrowColumn.h"
#include "source/distinctNames.h"
#include "source/ipc/FlatTable.h"

namespace kv::runtime {

namespace {

static_assert(std::endian::native == std::endian::little, "numbers are read as they are");

constexpr std::string_view kIpcMagic = "ARROW1";
constexpr std::string_view kOldMagic = "FEA1";
constexpr std::string_view kDamaged = "its list of batches is damaged";
constexpr std::uint32_t kContinues = 0xFFFFFFFF;

// Fields of Arrow's tables, see format/File.fbs and format/Message.fbs of Apache Arrow.
constexpr int kFooterBatches = 3;
constexpr int kMessageHeader = 2;
constexpr int kBatchLength = 0;
constexpr int kBatchNodes = 1;

/// Where a batch is in a file, as the end of the file says.
struct BatchPlace {
  std::int64_t offset;
  std::int32_t headerBytes;
  std::int32_t padding;
  std::int64_t bodyBytes;
};

/// The number of rows and of nulls of an array in a batch.
struct Node {
  std::int64_t rows;
  std::int64_t nulls;
};

/// Arrays that a column consists of in a batch, in which nested ones follow the outer one.
std::size_t nodesOf(const arrow::DataType& type) {
  std::size_t nodes = 1;
  for (const auto& field : type.fields()) {
    nodes += nodesOf(*field->type());
  }
  return nodes;
}

/// Reads what the file says about itself, for its hash as well.
class IpcScan {
 public:
  IpcScan(const SourceInput& input, IpcFile& file) : input_(input), file_(file) {}

  void run() {
    const std::string magic = bytesAt(0, std::min<std::int64_t>(bytes(), kIpcMagic.size()));
    if (magic.starts_with(kOldMagic)) {
      refuse("it is in the first version of Feather; write it again with a current version");
    }
    file_.isOneRun = magic != kIpcMagic;
    readSchema();
    if (file_.isStream()) {
      scanStream();
    } else {
      readFooter();
    }
    file_.hash = print_.digits();
  }

 private:
  [[noreturn]] void refuse(std::string reason) const {
    refuseIpc(input_.file(), std::move(reason));
  }

  std::int64_t bytes() const { return input_.file().bytes; }

  std::string bytesAt(std::int64_t offset, std::int64_t size) const {
    std::string bytes(static_cast<std::size_t>(size), '\0');
    input_.readAt(offset, bytes.data(), bytes.size());
    return bytes;
  }

  template <class T>
  T numberAt(std::int64_t offset) const {
    T number{};
    input_.readAt(offset, reinterpret_cast<char*>(&number), sizeof(number));
    return number;
  }

  void readSchema() {
    const auto opened = std::make_shared<ArrowInput>(input_.file(), currentPool());
    auto options = arrow::ipc::IpcReadOptions::Defaults();
    options.memory_pool = currentPool();
    options.use_threads = false;
    std::shared_ptr<arrow::Schema> schema;
    const arrow::Status status = statusOf(*opened, [&] {
      if (file_.isStream()) {
        ARROW_ASSIGN_OR_RAISE(const auto reader,
                              arrow::ipc::RecordBatchStreamReader::Open(opened, options));
        schema = reader->schema();
      } else {
        ARROW_ASSIGN_OR_RAISE(const auto reader,
                              arrow::ipc::RecordBatchFileReader::Open(opened, options));
        schema = reader->schema();
      }
      return arrow::Status::OK();
    });
    if (!status.ok() || schema == nullptr) {
      refuse(file_.isStream() ? "it doesn't begin with a schema, as a file or a stream does"
                              : "its end, which lists the batches, is damaged or missing");
    }
    std::vector<std::string> names = schema->field_names();
    const auto isText = [](const std::string& name) { return arrow::util::ValidateUTF8(name); };
    if (!std::ranges::all_of(names, isText)) {
      refuse("a name of a column isn't UTF-8");
    }
    names = distinctNames(std::move(names));
    for (const auto& field : schema->fields()) {
      const std::size_t number = file_.schema.size();
      file_.schema.push_back({.name = std::move(names[number]),
                              .type = elementTypeOf(*field->type()),
                              .fileType = foreignTypeName(*field->type())});
      nodes_.push_back(nodesOf(*field->type()));
    }
    print_.add(schema->ToString(true));
  }

  void readFooter() {
    constexpr auto kTail = static_cast<std::int64_t>(sizeof(std::int32_t) + kIpcMagic.size());
    const auto size = numberAt<std::int32_t>(bytes() - kTail);
    const std::string footer = bytesAt(bytes() - kTail - size, size);
    const auto root = FlatTable::root(footer);
    const auto places = root ? root->structures(kFooterBatches, sizeof(BatchPlace)) : std::nullopt;
    if (!places) {
      refuse(std::string(kDamaged));
    }
    for (std::size_t at = 0; at < places->size(); at += sizeof(BatchPlace)) {
      BatchPlace place{};
      std::memcpy(&place, places->data() + at, sizeof(place));
      const bool isInside = place.offset >= 0 && place.headerBytes >= 8 && place.bodyBytes >= 0 &&
                            place.offset <= bytes() - place.headerBytes &&
                            place.bodyBytes <= bytes() - place.headerBytes - place.offset;
      if (!isInside) {
        refuse(std::string(kDamaged));
      }
      const auto mark = numberAt<std::uint32_t>(place.offset);
      const std::int64_t prefix = mark == kContinues ? 8 : 4;
      addBatch(bytesAt(place.offset + prefix, place.headerBytes - prefix), place.bodyBytes);
    }
    print_.add(footer);
  }

  void scanStream() {
    std::int64_t at = 0;
    while (bytes() - at >= 4) {
      const auto mark = numberAt<std::uint32_t>(at);
      const bool continues = mark == kContinues;
      const std::int64_t prefix = continues ? 8 : 4;
      const std::int64_t size = !continues          ? mark
                                : bytes() - at >= 8 ? numberAt<std::uint32_t>(at + 4)
                                                    : 0;
      if (size == 0) {
        return;
      }
      if (size > bytes() - at - prefix) {
        refuseCut(at);
      }
      const std::string header = bytesAt(at + prefix, size);
      const auto message = arrow::ipc::Message::Open(arrow::Buffer::FromString(header), nullptr);
      throwIfOutOfMemory(message.status());
      if (!message.ok()) {
        refuse(fmt::format("the message at byte {} is damaged", at));
      }
      const std::int64_t body = (*message)->body_length();
      at += prefix + size;
      if (body < 0 || body > bytes() - at) {
        refuseCut(at);
      }
      if ((*message)->type() == arrow::ipc::MessageType::RECORD_BATCH) {
        addBatch(header, body);
      }
      at += body;
    }
  }

  [[noreturn]] void refuseCut(std::int64_t at) const {
    refuse(
        fmt::format("it ends within the message at byte {}, so it is damaged or wasn't copied "
                    "completely",
                    at));
  }

  void addBatch(const std::string& header, std::int64_t body) {
    const auto message = FlatTable::root(header);
    const auto batch = message ? message->table(kMessageHeader) : std::nullopt;
    const std::int64_t rows = batch ? batch->number<std::int64_t>(kBatchLength).value_or(-1) : -1;
    const auto nodes = batch ? batch->structures(kBatchNodes, sizeof(Node)) : std::nullopt;
    if (rows < 0 || rows > kMaxPositions - rows_ || !nodes) {
      refuse(fmt::format("the header of batch {} is damaged", file_.blocks.size() + 1));
    }
    std::size_t at = 0;
    for (std::size_t column = 0; column < nodes_.size(); ++column) {
      if (at + sizeof(Node) <= nodes->size() && isWhole(file_.schema[column].type)) {
        Node node{};
        std::memcpy(&node, nodes->data() + at, sizeof(node));
        file_.schema[column].isNullable |= node.nulls != 0;
      }
      at += nodes_[column] * sizeof(Node);
    }
    file_.blocks.push_back({rows, body});
    rows_ += rows;
    print_.add(header);
  }

  const SourceInput& input_;
  IpcFile& file_;
  std::vector<std::size_t> nodes_;  ///< of each column
  std::int64_t rows_ = 0;
  Fingerprint print_;
};

}  // namespace

void refuseIpc(const SourceFile& file, std::string reason) {
  errors::raiseStep("KALVEX:datastore:BadIpc", {file.path, std::move(reason)});
}

std::shared_ptr<const IpcFile> IpcFile::read(const SourceInput& input) {
  auto file = std::make_shared<IpcFile>();
  IpcScan(input, *file).run();
  return file;
}

}  // namespace kv::runtime
