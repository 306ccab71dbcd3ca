#include "kv/runtime/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <string_view>

#include "kv/errors/StepError.h"
#include "source/PathExpansion.h"
#include "source/registry/fileFormatTable.h"

namespace kv::runtime {

namespace {

/// The first bytes of a file; fewer if it can't be read, which is reported when it is opened.
std::string firstBytes(const std::string& path) {
  std::array<char, 6> bytes{};
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  const ssize_t got = file < 0 ? 0 : ::read(file, bytes.data(), bytes.size());
  if (file >= 0) {
    ::close(file);
  }
  return {bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
}

const SourceFormat& formatOfFile(const std::string& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  std::ranges::transform(ending, ending.begin(),
                         [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const std::string begin = firstBytes(path);
  const auto isOf = [&](const SourceFormat& format) {
    const auto begins = [&](std::string_view magic) { return begin.starts_with(magic); };
    return !format.magics.empty() &&
           (std::ranges::any_of(format.magics, begins) ||
            std::ranges::find(format.endings, ending) != format.endings.end());
  };
  const auto format = std::ranges::find_if(kSourceFormats, isOf);
  return format == kSourceFormats.end() ? kSourceFormats.front() : *format;
}

const SourceFormat& formatOfFiles(const std::vector<std::string>& paths) {
  std::vector<std::string_view> endings;
  for (const SourceFormat& format : kSourceFormats) {
    endings.insert(endings.end(), format.endings.begin(), format.endings.end());
  }
  const SourceFormat* common = nullptr;
  std::string first;
  for (const std::string& path : paths) {
    for (const std::string& file : expandPath(path, endings)) {
      const SourceFormat& format = formatOfFile(file);
      if (common == nullptr) {
        common = &format;
        first = file;
      } else if (common != &format) {
        errors::raiseStep("KALVEX:datastore:MixedFormats",
                          {first, std::string(common->shown), file, std::string(format.shown)});
      }
    }
  }
  return common == nullptr ? kSourceFormats.front() : *common;
}

/// What a format that isn't the default sets, for messages.
const char* optionIn(const CsvFormat& format) {
  return format.separator != '\0' ? "a separator"
         : !format.hasHeader      ? "the lack of a header"
                                  : "the markers of missing values";
}

}  // namespace

TypeOverride parseTypeOverride(std::string_view text) {
  const std::size_t sign = text.rfind('=');
  if (sign == std::string_view::npos) {
    errors::raiseStep("KALVEX:datastore:BadTypeOverride", {std::string(text)});
  }
  return {std::string(text.substr(0, sign)), std::string(text.substr(sign + 1))};
}

std::unique_ptr<Datastore> openFiles(const FileRequest& request) {
  const SourceFormat& format = formatOfFiles(request.paths);
  if (&format != &kSourceFormats.front() && request.csv != CsvFormat()) {
    errors::raiseStep("KALVEX:datastore:FixedFormat",
                      {request.paths.front(), std::string(format.shown), optionIn(request.csv)});
  }
  return format.open(request);
}

}  // namespace kv::runtime
