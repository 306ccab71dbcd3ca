#pragma once

#include <cstdint>
#include <unordered_map>
#include <utility>
#include <vector>

#include "heap/Object.h"
#include "kv/host/definitions.h"
#include "kv/host/values.h"
#include "save/CopyLimit.h"
#include "save/FileTables.h"
#include "session/Members.h"

namespace kv::host {

struct SessionState;
class ClassRecord;

/// The walk that loads: makes what the root of a file needs, and nothing else.
///
/// 1. Objects are made as shells when they are first referred to, values in ascending order, so
///    that cycles of objects need no care and nothing recurses.
/// 2. Shells are filled one after the other; filling one may make others.
/// 3. An object with a record is made by its class from the record. What the record refers to is
///    filled only if the object that came out holds it: a class may return another object for a
///    record, whatever else the record holds.
/// 4. When all are filled, classes are notified, and validators check the whole.
///
/// Errors: "KALVEX:load:Corrupt", "KALVEX:load:UnknownClass"; what `customLoad` of a class
/// raises. What was made is dropped then.
class GraphReader {
 public:
  GraphReader(SessionState& session, const FileTables& file, bool trusted);

  Value read();

 private:
  /// A class of the session as the objects of the file have it.
  struct Shape {
    ClassRecord* record = nullptr;
    std::vector<PropertyPlace> places{};
    const SavedForm* savedForm = nullptr;
    std::size_t leftOut = 0;  ///< properties of the class that the file doesn't have

    bool isTakenApart() const { return savedForm != nullptr && savedForm->restore != nullptr; }
  };
  Value make(format::Reference reference);
  void makeNeeded();
  void need(format::Reference reference);
  Value makeValue(std::uint32_t index);
  Value makeContainer(const SavedValue& value, std::uint32_t index);
  void countName(std::string_view name, std::uint32_t value);
  void countCopy(format::Reference reference, std::uint32_t object);
  Value take(format::Reference reference);
  Object& objectOf(std::uint32_t index);
  void makeObject(std::uint32_t index);
  void countLeftOut(std::uint32_t index);
  kcos::COSInterfacePtr makeFromRecord(std::uint32_t index);
  void reach(format::Reference reference);
  void reachObject(std::uint32_t index);
  void fill(std::uint32_t index);
  void finish();
  void validate() const;
  const Shape& shapeOf(std::uint32_t index);
  bool isRecord(std::uint32_t index) const;
  format::Reference recordOf(std::uint32_t index) const;

  SessionState& session_;
  const FileTables& file_;
  bool trusted_;
  std::size_t leftOutBytes_ = 0;
  CopyLimit copies_;
  std::unordered_map<std::uint32_t, Shape> shapes_;  ///< by their index in the file
  std::vector<kcos::COSInterfacePtr> objects_;
  std::vector<Value> values_;
  std::vector<bool> isNeeded_;           ///< of values: made, or about to be
  std::vector<bool> isReached_;          ///< of values: what they refer to is queued
  std::vector<bool> isQueued_;           ///< of objects: filled, or about to be
  std::vector<std::uint32_t> needed_;    ///< values that are about to be made
  std::vector<format::Reference> open_;  ///< references that are still to be followed
  std::vector<std::uint32_t> queue_;     ///< objects to be filled, in that order
  std::vector<std::pair<std::uint32_t, Value>> saved_;  ///< what objects had saved besides
};

}  // namespace kv::host
