#pragma once

#include <optional>
#include <unordered_map>
#include <vector>

#include "heap/Object.h"
#include "heap/Payload.h"
#include "kv/host/values.h"
#include "save/FileBuilder.h"
#include "session/Members.h"

namespace kv::host {

struct SessionState;
struct SavedForm;

/// The walk that saves: from a value through all values and objects that it refers to. What is
/// shared is written once; nothing recurses.
///
/// Values are written after what they hold, objects after the values that led to them, so that a
/// chain of objects of any length needs a queue and no stack.
///
/// Errors: "KALVEX:save:NotSaveable" with class and reason; "KALVEX:class:InvalidHandle" for a
/// deleted object; what `customSave` of a class raises.
class GraphWriter {
 public:
  explicit GraphWriter(SessionState& session) : session_(session) {}

  /// The sections of a file with `root`.
  Sections write(const kxArray* root);

 private:
  /// A value whose elements are being added; `recordOf` is the object that it is the record of.
  struct Pending {
    Value value;
    Object* recordOf = nullptr;
    std::vector<format::Reference> elements;
  };
  /// How the objects of a class are written.
  struct Shape {
    std::uint32_t index;
    std::vector<PropertyPlace> places;
    const SavedForm* savedForm;
  };
  /// A container or large value that was written; it is kept so that its address isn't reused.
  struct Written {
    Value value;
    format::Reference reference;
  };

  format::Reference add(const kxArray* value);
  format::Reference addUnshared(const kxArray* value);
  const Payload* identityOf(const kxArray* value) const;
  std::optional<format::Reference> referenceOf(const kxArray* value);
  bool mayShare(const kxArray* value, format::Reference known);
  std::optional<format::Reference> referenceOf(Object& object);
  format::Reference enqueue(Object& object);
  void begin(const kxArray* value);
  bool beginRecord(Object& object);
  format::Reference finish(Pending pending);
  void writeObject(Object& object, std::uint32_t index);
  const Shape& shapeOf(const Object& object);

  SessionState& session_;
  FileBuilder file_;
  std::vector<Pending> stack_;
  std::unordered_map<const Object*, std::uint32_t> objects_;
  std::vector<kcos::COSInterfacePtr> queue_;  ///< objects that were given an index, in that order
  std::vector<kcos::COSInterfacePtr> recorded_;  ///< objects that are in the file as records
  std::unordered_map<const Payload*, Written> payloads_;
  const Payload* unshared_ = nullptr;  ///< written again where it was written before
  std::size_t sharedExpansion_ = 0;  ///< of values in others that refer to what was written before
  std::size_t rewrittenExpansion_ = 0;  ///< of those that were written again
  std::unordered_map<const ObjectClass*, Shape> shapes_;
};

}  // namespace kv::host
