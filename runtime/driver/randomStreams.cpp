#include "driver/randomStreams.h"

#include <vector>

#include "values/hostNames.h"

namespace kv::runtime {

using host::Value;

namespace {

void setGlobalStream(const kxArray* stream) {
  host::callMany("RandStream.setGlobalStream", 0, std::vector<const kxArray*>{stream});
}

}  // namespace

Value streamForPartition(const kxArray* factory, std::int64_t partition) {
  if (!kxIsA(factory, kGlobalStateFactory)) {
    return nullptr;
  }
  const Value options = host::getProperty(factory, "Options");
  const Value streams = host::getProperty(options.get(), "RandStreamFactory");
  const Value number = host::makeDouble(static_cast<double>(partition + 1));
  return host::call("getRandStreamForPartition", {streams.get(), number.get()});
}

StreamScope::StreamScope(Value stream) {
  if (stream != nullptr) {
    previous_ = host::call("RandStream.getGlobalStream");
    setGlobalStream(stream.get());
  }
}

StreamScope::~StreamScope() {
  if (previous_ == nullptr) {
    return;
  }
  try {
    setGlobalStream(previous_.get());
  } catch (...) {
    // What the code in the scope raised, or returned, is what the caller has to see.
  }
}

}  // namespace kv::runtime
