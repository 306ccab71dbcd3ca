#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "heap/Array.h"
#include "heap/Heap.h"

namespace kv::host {

/// Counts again what the heap keeps count of, and compares; then compares what the native
/// properties report to refer to with the edges and adopted arrays.
class HeapVerifier {
 public:
  explicit HeapVerifier(const Heap& heap) : heap_(heap) {}

  std::vector<std::string> run();

 private:
  /// How many references lead to an object or a payload from inside the heap.
  template <class T>
  using Counts = std::unordered_map<const T*, std::uint32_t>;

  void countFrom(const Object& object);
  void countFrom(const ReferencePayload& payload);
  void countFrom(const kxArray* inside);
  void checkObject(const Object& object);
  void checkAdopted(const Object& object);
  void checkProperties(Object& object);
  /// `links`: how often the native properties of the object refer to each other object.
  void checkEdges(const Object& object, Counts<Object> links);
  void checkPayload(const ReferencePayload& payload, bool isListedOutside);
  void report(const Object& object, const std::string& what);

  template <class Visit>
  void forEachObject(Visit visit) const;
  template <class Visit>
  void forEachPayload(Visit visit) const;

  const Heap& heap_;
  Counts<Object> held_;
  Counts<Payload> insideArrays_;
  std::vector<std::string> broken_;
};

}  // namespace kv::host
