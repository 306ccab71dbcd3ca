#include "persistence/RefittedFile.h"

#include <cstdint>
#include <cstring>

#include "save/Container.h"

namespace kv::test {

std::string withFittingHeader(std::string_view file) {
  using namespace host::format;
  if (file.size() < kHeaderBytes) {
    return std::string(file);
  }
  host::Sections sections;
  std::string_view rest = file.substr(kHeaderBytes);
  for (std::size_t i = 0; i < kSections; ++i) {
    std::uint64_t length = 0;
    std::memcpy(&length, file.data() + kTableAt + i * kTableEntryBytes + 8, sizeof(length));
    sections[i] = rest.substr(0, i + 1 == kSections ? rest.size() : length);
    rest.remove_prefix(sections[i].size());
  }
  std::string fitting = host::headerOf(sections);
  for (const std::string& section : sections) {
    fitting += section;
  }
  return fitting;
}

}  // namespace kv::test
