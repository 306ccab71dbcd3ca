// The header is the text of a Python dictionary. It is read for the three entries that it has, by
// hand: nothing in a file is ever evaluated.

#include "source/npy/NpyHeader.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "kv/errors/StepError.h"
#include "kv/runtime/PositionCut.h"
#include "kv/runtime/times.h"

namespace kv::runtime {

namespace {

static_assert(std::endian::native == std::endian::little);

constexpr std::string_view kNumpyMagic("\x93NUMPY");
constexpr std::int64_t kMostHeaderBytes = 1 << 20;

[[noreturn]] void refuseNpy(const SourceFile& file, std::string reason) {
  errors::raiseStep("KALVEX:datastore:BadNpy", {file.path, std::move(reason)});
}

struct NpyCode {
  std::string_view code;  ///< without the order of bytes
  ElementType type;
};

constexpr std::array kNpyCodes{
    NpyCode{"b1", ElementType::Logical},  NpyCode{"i1", ElementType::Int8},
    NpyCode{"u1", ElementType::UInt8},    NpyCode{"i2", ElementType::Int16},
    NpyCode{"u2", ElementType::UInt16},   NpyCode{"i4", ElementType::Int32},
    NpyCode{"u4", ElementType::UInt32},   NpyCode{"i8", ElementType::Int64},
    NpyCode{"u8", ElementType::UInt64},   NpyCode{"f2", ElementType::Single},
    NpyCode{"f4", ElementType::Single},   NpyCode{"f8", ElementType::Double},
    NpyCode{"M8", ElementType::DateTime}, NpyCode{"m8", ElementType::Duration},
};

struct NpyUnit {
  std::string_view name;
  std::int64_t timesUnit;
  std::int64_t perMicrosecond;
};

constexpr std::array kNpyUnits{
    NpyUnit{"[W]", 7 * 86'400 * kMicrosecondsPerSecond, 1},
    NpyUnit{"[D]", 86'400 * kMicrosecondsPerSecond, 1},
    NpyUnit{"[h]", 3'600 * kMicrosecondsPerSecond, 1},
    NpyUnit{"[m]", 60 * kMicrosecondsPerSecond, 1},
    NpyUnit{"[s]", kMicrosecondsPerSecond, 1},
    NpyUnit{"[ms]", 1'000, 1},
    NpyUnit{"[us]", 1, 1},
    NpyUnit{"[ns]", 1, 1'000},
};

/// Reads the dictionary of a header from left to right.
class HeaderText {
 public:
  explicit HeaderText(std::string_view text) : rest_(text) {}

  /// False if the text isn't such a dictionary.
  bool read(NpyHeader& header) {
    std::array<bool, 3> has{};
    if (!take('{')) {
      return false;
    }
    while (!take('}')) {
      const auto key = quoted();
      if (!key || !take(':')) {
        return false;
      }
      const bool isRead = *key == "descr"           ? (has[0] = readCode(header.code))
                          : *key == "fortran_order" ? (has[1] = readFlag(header.isFortran))
                          : *key == "shape"         ? (has[2] = readShape(header.shape))
                                                    : false;
      if (!isRead || (!take(',') && !rest_.starts_with('}'))) {
        return false;
      }
    }
    return has == std::array{true, true, true};
  }

 private:
  /// Skips spaces, then the character if it comes next.
  bool take(char expected) {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \n\t"), rest_.size()));
    const bool isNext = rest_.starts_with(expected);
    rest_.remove_prefix(isNext ? 1 : 0);
    return isNext;
  }

  bool takeWord(std::string_view word) {
    take('\0');
    const bool isNext = rest_.starts_with(word);
    rest_.remove_prefix(isNext ? word.size() : 0);
    return isNext;
  }

  std::optional<std::string> quoted() {
    const char quote = take('\'') ? '\'' : take('"') ? '"' : '\0';
    const std::size_t end = quote == '\0' ? std::string_view::npos : rest_.find(quote);
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    std::string text(rest_.substr(0, end));
    rest_.remove_prefix(end + 1);
    return text;
  }

  /// Elements with fields have a list instead of a code, which is kept as it is, for the message.
  bool readCode(std::string& code) {
    if (const auto text = quoted()) {
      code = *text;
      return true;
    }
    const std::size_t end = rest_.find(']');
    if (!rest_.starts_with('[') || end == std::string_view::npos) {
      return false;
    }
    const std::size_t last = rest_.rfind(']');
    code = rest_.substr(0, last + 1);
    rest_.remove_prefix(last + 1);
    return true;
  }

  bool readFlag(bool& flag) {
    flag = takeWord("True");
    return flag || takeWord("False");
  }

  bool readShape(Dimensions& shape) {
    if (!take('(')) {
      return false;
    }
    while (!take(')')) {
      std::int64_t extent = 0;
      const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), extent);
      if (error != std::errc() || extent < 0) {
        return false;
      }
      rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
      shape.push_back(extent);
      take('L');  // as Python 2 wrote them
      if (!take(',') && !rest_.starts_with(')')) {
        return false;
      }
    }
    return true;
  }

  std::string_view rest_;
};

std::string textAt(const SourceInput& input, std::int64_t offset, std::int64_t size) {
  std::string bytes(static_cast<std::size_t>(size), '\0');
  input.readAt(offset, bytes.data(), bytes.size());
  return bytes;
}

/// The text of the header, and where the elements start.
std::pair<std::string, std::int64_t> headerText(const SourceInput& input) {
  const SourceFile& file = input.file();
  const std::string begin = textAt(input, 0, std::min<std::int64_t>(file.bytes, 12));
  if (!begin.starts_with(kNumpyMagic)) {
    refuseNpy(file, "it doesn't begin as a .npy file does");
  }
  const int version = begin.size() < 12 ? 0 : begin[6];
  if (version < 1 || version > 3) {
    refuseNpy(file, begin.size() < 12
                        ? "it ends within its header"
                        : fmt::format("its version is {}; 1 to 3 can be read", version));
  }
  std::uint16_t shortSize = 0;
  std::uint32_t size = 0;
  std::memcpy(&shortSize, begin.data() + 8, sizeof(shortSize));
  std::memcpy(&size, begin.data() + 8, sizeof(size));
  const std::int64_t start = version == 1 ? 10 : 12;
  const std::int64_t bytes = version == 1 ? shortSize : size;
  if (bytes > std::min(kMostHeaderBytes, file.bytes - start)) {
    refuseNpy(file, fmt::format("its header should have {} bytes, and there is room for {}", bytes,
                                std::min(kMostHeaderBytes, file.bytes - start)));
  }
  return {textAt(input, start, bytes), start + bytes};
}

/// Errors: "KALVEX:datastore:BadNpy" for a shape that can't be, or that the file is too short for.
void checkShape(const SourceFile& file, const NpyHeader& header, std::int64_t elementBytes) {
  if (header.shape.empty()) {
    refuseNpy(file, "it is a single element without a dimension of rows");
  }
  std::int64_t columns = 1;
  std::int64_t bytes = elementBytes;
  bool isPossible = header.shape.front() <= kMaxPositions;
  for (std::size_t i = 1; i < header.shape.size(); ++i) {
    isPossible = isPossible && header.shape[i] > 0 &&
                 !__builtin_mul_overflow(columns, header.shape[i], &columns);
  }
  isPossible = isPossible && !__builtin_mul_overflow(bytes, columns, &bytes) &&
               !__builtin_mul_overflow(bytes, header.shape.front(), &bytes) &&
               bytes <= std::numeric_limits<std::int64_t>::max() - header.dataStart;
  const std::string shape = fmt::format("({})", fmt::join(header.shape, ", "));
  if (!isPossible || columns > kMaxArrayColumns) {
    refuseNpy(file, fmt::format("its shape is {}; an array has at most {} rows, and 1 to {} "
                                "elements in a row",
                                shape, kMaxPositions, kMaxArrayColumns));
  }
  if (bytes > file.bytes - header.dataStart) {
    refuseNpy(file, fmt::format("its shape {} needs {} bytes, and it has {}, so it is damaged or "
                                "wasn't copied completely",
                                shape, bytes, file.bytes - header.dataStart));
  }
}

}  // namespace

bool NpyElement::isPlain() const {
  return !isSwapped && !isHalf && timesUnit == perMicrosecond && type != ElementType::Logical;
}

NpyElement NpyElement::of(const std::string& code) {
  constexpr std::string_view kOrders = "<>|=";
  NpyElement element{.type = ElementType::Unknown};
  if (code.size() < 3 || kOrders.find(code.front()) == std::string_view::npos) {
    return element;
  }
  const std::string_view rest = std::string_view(code).substr(1);
  const auto* const known = std::ranges::find(kNpyCodes, rest.substr(0, 2), &NpyCode::code);
  const std::string_view unit = rest.substr(2);
  const auto* const scale = std::ranges::find(kNpyUnits, unit, &NpyUnit::name);
  const bool isTime = known != kNpyCodes.end() && (known->type == ElementType::DateTime ||
                                                   known->type == ElementType::Duration);
  if (known == kNpyCodes.end() || (isTime ? scale == kNpyUnits.end() : !unit.empty())) {
    return element;
  }
  element.type = known->type;
  element.bytes = rest[1] - '0';
  element.isSwapped = code.front() == '>' && element.bytes > 1;
  element.isHalf = known->code == "f2";
  if (isTime) {
    element.timesUnit = scale->timesUnit;
    element.perMicrosecond = scale->perMicrosecond;
  }
  return element;
}

NpyHeader NpyHeader::read(const SourceInput& input) {
  const auto [text, dataStart] = headerText(input);
  NpyHeader header;
  header.dataStart = dataStart;
  if (!HeaderText(text).read(header)) {
    refuseNpy(input.file(), "its header is damaged");
  }
  const NpyElement element = NpyElement::of(header.code);
  if (element.type == ElementType::Unknown) {
    refuseNpy(
        input.file(),
        fmt::format("its elements are {}; logicals, integers, floating numbers of up to 64 bits "
                    "and times in weeks to nanoseconds can be read",
                    header.code));
  }
  checkShape(input.file(), header, element.bytes);
  return header;
}

}  // namespace kv::runtime
