// A unit knows the types of its rows only when the first come, so its file is opened then, and a
// partition without rows has none. What the client makes of the parts depends on their order alone:
// not on which were written first.

#include "sink/PartWriter.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <set>
#include <utility>
#include <vector>

#include "kv/errors/StepError.h"
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

/// The folders of keys, each once; those above others come later.
std::vector<std::string> foldersOf(const std::vector<WrittenFile>& files) {
  std::set<std::string, std::greater<>> folders;
  for (const WrittenFile& file : files) {
    for (std::size_t end = file.name.find('/'); end != std::string::npos;
         end = file.name.find('/', end + 1)) {
      folders.insert(file.name.substr(0, end));
    }
  }
  return {folders.begin(), folders.end()};
}

bool isKnown(const SinkSchema& schema) {
  return std::ranges::find(schema.types, ElementType::Unknown) == schema.types.end();
}

}  // namespace

std::string WrittenPart::toBytes() const {
  ByteWriter bytes;
  bytes.number<std::uint64_t>(files.size());
  for (const WrittenFile& file : files) {
    bytes.text(file.name);
    bytes.number(file.rows);
    bytes.number(file.bytes);
  }
  bytes.number(rows);
  schema.write(bytes);
  return bytes.take();
}

WrittenPart WrittenPart::fromBytes(std::string_view content) {
  ByteReader bytes(content, "a written part");
  WrittenPart part;
  for (std::size_t left = bytes.count(); left > 0; --left) {
    WrittenFile& file = part.files.emplace_back();
    file.name = bytes.text();
    file.rows = bytes.number<std::int64_t>();
    file.bytes = bytes.number<std::int64_t>();
  }
  part.rows = bytes.number<std::int64_t>();
  part.schema = SinkSchema::read(bytes);
  bytes.finish();
  return part;
}

PartWriter::PartWriter(const WriteTarget& target, std::int64_t partition,
                       std::int64_t numPartitions)
    : target_(target),
      keys_(target),
      partition_(partition),
      name_(partName(formatOf(target), partition, numPartitions)) {}

void PartWriter::write(const Chunk& rows) {
  const Chunk columns = keys_.withoutKeys(rows);
  if (part_.rows == 0) {
    part_.schema = SinkSchema::of(columns, keys_.names());
  }
  if (rows.rows() == 0) {
    return;
  }
  part_.rows += rows.rows();
  if (!keys_.hasKeys()) {
    return writeTo("", columns);
  }
  for (const auto& [folder, places] : keys_.placesByFolder(rows)) {
    writeTo(folder, rowsAt(columns, places));
  }
}

void PartWriter::writeTo(const std::string& folder, const Chunk& rows) {
  auto file = files_.find(folder);
  if (file == files_.end()) {
    if (files_.size() == kMostFolders) {
      errors::raiseStep("KALVEX:sink:TooManyFolders",
                        {fmt::format("{}", kMostFolders), fmt::format("{}", partition_ + 1)});
    }
    file = files_.emplace(folder, open(folder)).first;
  }
  file->second.writer->write(rows);
  file->second.rows += rows.rows();
}

PartWriter::File PartWriter::open(const std::string& folder) const {
  const SinkFormat& format = formatOf(target_);
  format.checkSchema(part_.schema);
  const std::string all = target_.isFolder ? stagedPath(target_) : piecesPath(target_);
  for (std::size_t end = folder.find('/'); end != std::string::npos;
       end = folder.find('/', end + 1)) {
    makeFolder(all + '/' + folder.substr(0, end), target_);
  }
  const FilePart part = target_.isFolder ? FilePart::Whole : FilePart::Piece;
  const OpenFile open = keys_.hasKeys() ? OpenFile::Seldom : OpenFile::Always;
  File file;
  file.output = std::make_shared<OutputFile>(all + '/' + folder + name_, target_.path, open);
  file.writer = format.open(file.output, part_.schema, part);
  return file;
}

WrittenPart PartWriter::finish() {
  for (auto& [folder, file] : files_) {
    file.writer->finish();
    target_.isFolder ? file.output->sync() : file.output->check(file.output->Flush());
    part_.files.push_back({folder + name_, file.rows, file.output->bytes()});
    file.writer.reset();
  }
  files_.clear();
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
      files_.insert(files_.end(), part.files.begin(), part.files.end());
      return;
    }
    const std::string piece = piecesPath(target_) + '/' + part.files.front().name;
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
      manifest.put(manifestOf(target_, schema_, rows_, files_));
      manifest.sync();
    }
    staging_.commit(foldersOf(files_));
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
    files_ = {{.name = name, .bytes = file->bytes()}};
  }

  WriteTarget target_;
  StagingFolder staging_;
  SinkSchema schema_;
  bool hasRows_ = false;
  std::int64_t rows_ = 0;
  std::vector<WrittenFile> files_;  ///< of a folder
  OutputPtr file_;                  ///< of a file
  std::unique_ptr<PieceJoiner> joiner_;
};

PartsMerge::PartsMerge(WriteTarget target) : state_(std::make_unique<State>(std::move(target))) {}

PartsMerge::~PartsMerge() = default;

void PartsMerge::add(const WrittenPart& part) { state_->add(part); }

std::int64_t PartsMerge::finish() { return state_->finish(); }

}  // namespace kv::runtime
