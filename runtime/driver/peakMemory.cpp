#include "driver/peakMemory.h"

#include <charconv>
#include <fstream>
#include <string>
#include <string_view>

namespace kv::runtime {

// Not getrusage: its ru_maxrss begins at what the parent process had when it started this one.
std::int64_t peakResidentBytes() {
  constexpr std::string_view kField = "VmHWM:";
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(kField)) {
      continue;
    }
    const std::size_t digits = line.find_first_of("0123456789");
    std::int64_t kibibytes = 0;
    if (digits != std::string::npos) {
      std::from_chars(line.data() + digits, line.data() + line.size(), kibibytes);
    }
    return kibibytes * 1024;
  }
  return 0;
}

}  // namespace kv::runtime
