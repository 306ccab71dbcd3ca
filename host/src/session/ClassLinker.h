#pragma once

#include <vector>

#include "session/ClassRecord.h"

namespace kv::host {

class ClassTable;

/// Links classes with their superclasses by name: makes the tables that calls look into.
///
/// 1. Superclasses are linked first, by a walk with an explicit stack.
/// 2. A superclass that isn't defined is left out and noted; only making an object needs it.
/// 3. Of members with one name, the class's own hide inherited ones; of inherited ones, those of
///    the leftmost superclass are taken, unless they are abstract and others aren't.
/// 4. A class has at most one chain of native superclasses. The native part of its objects is
///    viewed as these and no others.
class ClassLinker {
 public:
  explicit ClassLinker(ClassTable& table) : table_(table) {}

  /// Errors: see `ClassRecord::linked`.
  void link(ClassRecord& record);

 private:
  enum class Mark : char { Open, Done };

  std::vector<ClassRecord*> superclassesFirst(ClassRecord& record);
  void linkOne(ClassRecord& record);

  static void inherit(LinkedClass& linked, const ClassRecord& record, const ClassRecord& super);
  static void addOwnMembers(LinkedClass& linked, const ClassRecord& record);
  static void placeOwnProperties(LinkedClass& linked, const ClassContents& contents);
  static void chooseNative(LinkedClass& linked, const ClassRecord& record,
                           const ClassRecord& super);
  static void summarize(LinkedClass& linked, const ClassRecord& record);

  ClassTable& table_;
};

}  // namespace kv::host
