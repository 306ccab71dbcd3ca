#pragma once

#include <vector>

#include "kv/host/values.h"

/// The graph that the host holds of what was recorded: promises, the closures that fulfil them, and
/// the futures that these read.
namespace kv {

/// The object that identifies a promise or a closure: saved and opened ones may have equal ids.
inline const kcos::COSInterface* objectIn(const kxArray* scalar) {
  return kcos::omGetArrayElement(scalar, 0).get();
}

/// The promise of the value of a lazy array.
inline host::Value promiseOfArray(const kxArray* array) {
  const host::Value future = host::getProperty(array, "ValueFuture");
  return host::getProperty(future.get(), "Promise");
}

/// True if the value is known; then nothing more is computed for it.
inline bool isDone(const kxArray* promise) {
  return host::toLogical(host::getProperty(promise, "IsDone").get());
}

/// The closure that fulfils a promise that isn't done.
inline host::Value closureOf(const kxArray* promise) {
  return host::getProperty(promise, "Closure");
}

/// The promises of what a closure reads, in order.
inline std::vector<host::Value> inputsOf(const kxArray* closure) {
  const host::Value futures = host::getProperty(closure, "InputFutures");
  std::vector<host::Value> promises;
  for (std::size_t i = 0; i < kxGetNumberOfElements(futures.get()); ++i) {
    const host::Value future =
        matrix::from_kalvex(kcos::omCreateKCOSScalar(kcos::omGetArrayElement(futures.get(), i)));
    promises.push_back(host::getProperty(future.get(), "Promise"));
  }
  return promises;
}

}  // namespace kv
