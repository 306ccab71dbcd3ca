#include "sink/PartWriter.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "sink/StagingFolder.h"
#include "sink/manifest.h"

namespace kv::runtime {

namespace {

constexpr std::size_t kLeastDigits = 5;

std::string partName(const SinkFormat& format, std::int64_t partition, std::int64_t numPartitions) {
  const std::size_t digits = std::max(
      kLeastDigits, fmt::format("{}", std::max<std::int64_t>(numPartitions - 1, 0)).size());
  return fmt::format("part-{:0{}}{}", partition, digits, format.endings.front());
}

const SinkFormat& formatOf(const WriteTarget& target) { return *findSinkFormat(target.format); }

bool isKnown(const SinkSchema& schema) {
  return std::ranges::find(schema.types, ElementType::Unknown) == schema.types.end();
}

}  // namespace

std::string WrittenPart::toBytes() const {
  ByteWriter writer;
  writer.text(name);
  writer.number(rows);
  writer.number(bytes);
  schema.write(writer);
  return writer.take();
}

WrittenPart WrittenPart::fromBytes(std::string_view content) {
  ByteReader bytes(content, "a written part");
  WrittenPart part{.name = bytes.text()};
  part.rows = bytes.number<std::int64_t>();
  part.bytes = bytes.number<std::int64_t>();
  part.schema = SinkSchema::read(bytes);
  bytes.finish();
  return part;
}

PartWriter::PartWriter(const WriteTarget& target, std::int64_t partition,
                       std::int64_t numPartitions)
    : target_(target), name_(partName(formatOf(target), partition, numPartitions)) {}

void PartWriter::write(const Chunk& rows) {
  if (rows.rows() == 0) {
    part_.schema = part_.rows == 0 ? SinkSchema::of(rows, target_.names) : part_.schema;
    return;
  }
  const SinkFormat& format = formatOf(target_);
  if (writer_ == nullptr) {
    part_.schema = SinkSchema::of(rows, target_.names);
    format.checkSchema(part_.schema);
    const std::string folder = target_.isFolder ? stagedPath(target_) : piecesPath(target_);
    file_ = std::make_shared<OutputFile>(folder + '/' + name_, target_.path);
    writer_ =
        format.open(file_, part_.schema, target_.isFolder ? FilePart::Whole : FilePart::Piece);
    part_.name = name_;
  }
  writer_->write(rows);
  part_.rows += rows.rows();
}

WrittenPart PartWriter::finish() {
  if (writer_ != nullptr) {
    writer_->finish();
    target_.isFolder ? file_->sync() : file_->check(file_->Flush());
    part_.bytes = file_->bytes();
  }
  writer_.reset();
  file_.reset();
  return std::move(part_);
}

class PartsMerge::State {
 public:
  explicit State(WriteTarget target) : target_(std::move(target)), staging_(checked(target_)) {}

  void add(const WrittenPart& part) {
    if (!hasRows_ && (part.rows > 0 || schema_.types.empty() || !isKnown(schema_))) {
      schema_ = part.schema;
    }
    if (part.rows == 0) {
      return;
    }
    hasRows_ = true;
    rows_ += part.rows;
    if (target_.isFolder) {
      parts_.push_back(part);
      return;
    }
    const std::string piece = piecesPath(target_) + '/' + part.name;
    if (joiner_ == nullptr) {
      file_ = std::make_shared<OutputFile>(stagedPath(target_), target_.path);
      joiner_ = formatOf(target_).join(file_, schema_);
    }
    joiner_->append(piece, part.rows);
    ::unlink(piece.c_str());
  }

  std::int64_t finish() {
    if (!hasRows_) {
      writeWithoutRows();
    } else if (!target_.isFolder) {
      joiner_->finish();
      file_->sync();
    }
    if (target_.isFolder) {
      OutputFile manifest(stagedPath(target_) + '/' + std::string(kManifestName), target_.path);
      manifest.put(manifestOf(target_, schema_, parts_));
      manifest.sync();
    }
    staging_.commit();
    return rows_;
  }

 private:
  static const WriteTarget& checked(const WriteTarget& target) {
    checkTarget(target, {});
    return target;
  }

  /// One file that has the columns.
  void writeWithoutRows() {
    const SinkFormat& format = formatOf(target_);
    format.checkSchema(schema_);
    const std::string name = partName(format, 0, 1);
    const std::string path =
        target_.isFolder ? stagedPath(target_) + '/' + name : stagedPath(target_);
    const auto file = std::make_shared<OutputFile>(path, target_.path);
    format.open(file, schema_, FilePart::Whole)->finish();
    file->sync();
    parts_ = {{.name = name, .bytes = file->bytes()}};
  }

  WriteTarget target_;
  StagingFolder staging_;
  SinkSchema schema_;
  bool hasRows_ = false;
  std::int64_t rows_ = 0;
  std::vector<WrittenPart> parts_;  ///< of a folder
  OutputPtr file_;                  ///< of a file
  std::unique_ptr<PieceJoiner> joiner_;
};

PartsMerge::PartsMerge(WriteTarget target) : state_(std::make_unique<State>(std::move(target))) {}

PartsMerge::~PartsMerge() = default;

void PartsMerge::add(const WrittenPart& part) { state_->add(part); }

std::int64_t PartsMerge::finish() { return state_->finish(); }

}  // namespace kv::runtime
