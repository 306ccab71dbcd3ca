#include "source/fileFormats.h"

#include <algorithm>
#include <iterator>

namespace kv::runtime {

namespace {

using namespace std::string_view_literals;

constexpr FileFormat kUtf16{"text in UTF-16",
                            "convert it to UTF-8 first (iconv -f UTF-16 -t UTF-8)"};

struct Magic {
  std::string_view bytes;
  FileFormat format;
};

/// Of two with the same beginning, the longer one comes first.
constexpr Magic kMagics[] = {
    {"\x1F\x8B"sv, {"compressed twice", "unpack it first (gunzip)"}},
    {"\xFD"
     "7zXZ"sv,
     {"compressed with xz", "unpack it first (unxz)"}},
    {"PK\x03\x04"sv,
     {"a ZIP archive", "unpack it first, or export the spreadsheet (.xlsx) as CSV"}},
    {"PAR1"sv, {"a Parquet file", "open it as one"}},
    {"ARROW1"sv, {"an Arrow IPC (Feather) file", "open it as one"}},
    {"\x93NUMPY"sv, {"a NumPy array", "open it as one"}},
    {"\x89HDF"sv, {"an HDF5 file", "read its chunks by a library for HDF5"}},
    {"\xFF\xFE\0\0"sv, {"text in UTF-32", "convert it to UTF-8 first (iconv -f UTF-32 -t UTF-8)"}},
    {"\xFF\xFE"sv, kUtf16},
    {"\xFE\xFF"sv, kUtf16},
};

/// ASCII in UTF-16 without a byte order mark: every other byte is 0.
bool looksLikeUtf16(std::string_view bytes) {
  const auto isPair = [&](std::size_t first, std::size_t second) {
    return bytes[first] == '\0' && bytes[second] >= ' ' && bytes[second] < '\x7F';
  };
  return bytes.size() >= 4 && ((isPair(0, 1) && isPair(2, 3)) || (isPair(1, 0) && isPair(3, 2)));
}

}  // namespace

const FileFormat* formatOf(std::string_view bytes) {
  const auto* found = std::ranges::find_if(
      kMagics, [&](const Magic& magic) { return bytes.starts_with(magic.bytes); });
  if (found != std::end(kMagics)) {
    return &found->format;
  }
  return looksLikeUtf16(bytes) ? &kUtf16 : nullptr;
}

}  // namespace kv::runtime
