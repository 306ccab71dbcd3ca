#include "LoaderTrial.h"

#include "kv/host/errors.h"

namespace kv::test {

using Torvane::KException::KExceptionEnvelope;

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
    const bool isRefusal = error.identifier == "KALVEX:load:Corrupt" ||
                           error.identifier == "KALVEX:load:LaterFormat" ||
                           error.identifier == "KALVEX:load:UnknownClass";
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
