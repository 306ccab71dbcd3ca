#pragma once

#include <boost/container/small_vector.hpp>

#include "heap/Object.h"
#include "kv/host/values.h"
#include "session/ClassRecord.h"

namespace kv::host {

struct SessionState;

/// How objects are constructed.
///
/// 1. The object is made with its slots at their defaults, then the constructor of its class runs.
/// 2. A constructor of a language may run those of its direct superclasses. The host
///    runs those that it didn't, without inputs, before a first use of that superclass's members or
///    at the end; for the native superclass, the class info makes the native part instead.
/// 3. A constructor that fails leaves no object.

/// A call of a class's constructor, with the rights of the session's caller.
///
/// Errors: "KALVEX:UndefinedFunction" with a superclass that isn't defined,
/// "KALVEX:class:AbstractClass", "KALVEX:class:AccessDenied", counts that don't fit.
void constructObject(SessionState& session, ClassRecord& record, const Call& call);

/// An object without any constructor run: slots at their defaults, no native part. Its
/// references keep it alive; the result is the first.
/// Errors: "KALVEX:UndefinedFunction" with a superclass that isn't defined.
kcos::COSInterfacePtr newInstance(SessionState& session, ClassRecord& record);

/// Runs the constructors of a native class's language superclasses, without inputs.
void constructLanguageParts(SessionState& session, const ClassRecord& record, Object& object);

/// Runs the constructor of the superclass `part` on an object under construction, unless it has
/// run.
void constructPart(SessionState& session, Object& object, const ClassRecord& part);

/// Gives an object the native part that a loader fills: by the constructor without inputs of its
/// native class, whatever its access, or by the class info.
void constructShell(SessionState& session, Object& object);

/// The construction of an object, for as long as it runs; a session chains them.
class Construction {
 public:
  Construction(SessionState& session, Object& object);
  ~Construction();
  Construction(const Construction&) = delete;
  Construction& operator=(const Construction&) = delete;

  /// The innermost construction of that object, or null.
  static Construction* of(const SessionState& session, const Object& object) noexcept;

  Object& object() const noexcept { return object_; }
  const kxArray* self() const noexcept { return self_.get(); }
  /// The result of a construction that is complete.
  Value takeSelf() noexcept { return std::move(self_); }

  bool hasMade(const ClassRecord& part) const noexcept;
  void markMade(const ClassRecord& part) { made_.push_back(&part); }

 private:
  SessionState& session_;
  Object& object_;
  Value self_;
  boost::container::small_vector<const ClassRecord*, 6> made_;  ///< their constructors have begun
  Construction* outer_;
};

}  // namespace kv::host
