#include "LoaderTrial.h"

#include <algorithm>
#include <cstring>

#include "kv/host/errors.h"
#include "save/Container.h"

namespace kv::test {

using Torvane::KException::KExceptionEnvelope;

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

std::string LoaderTrial::load(std::string_view file) {
  std::string broken = use(file);
  if (broken.empty() && session_.takeUserCalls() != 0) {
    broken = "something of the user's ran";
  }
  if (broken.empty() && session_.liveObjects() != objects_) {
    broken = "objects are left behind";
  }
  session_.host().clearWarnings();
  return broken;
}

std::string LoaderTrial::use(std::string_view file) {
  Value value;
  try {
    value = session_.load(file);
  } catch (const KExceptionEnvelope& envelope) {
    const host::ErrorRecord error = host::errorRecord(envelope);
    const bool isRefusal =
        error.identifier == "KALVEX:load:Corrupt" || error.identifier == "KALVEX:load:UnknownClass";
    return isRefusal ? "" : "an error of another kind: " + error.message;
  }
  try {
    value = session_.load(session_.save(value));
  } catch (const KExceptionEnvelope& envelope) {
    return std::string("a loaded value can't be saved and loaded again: ") + envelope.what();
  }
  return session_.isSound() ? "" : "the heap isn't sound";
}

}  // namespace kv::test
