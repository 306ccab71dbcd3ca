#pragma once

#include <boost/container/small_vector.hpp>
#include <cstdint>

#include "kcos/class.h"
#include "kv/host/definitions.h"
#include "name/NameMap.h"

namespace kv::host {

class ClassRecord;

/// How many values a method takes and gives. -1 as a maximum means any number; the object counts as
/// an input.
struct Counts {
  int minInputs = 0;
  int maxInputs = -1;
  int maxOutputs = -1;

  bool takes(int inputs) const { return inputs >= minInputs && !tooMany(inputs); }
  bool tooMany(int inputs) const { return maxInputs >= 0 && inputs > maxInputs; }
  bool gives(int outputs) const { return maxOutputs < 0 || outputs <= 1 || outputs <= maxOutputs; }
  bool isExact() const { return minInputs == maxInputs; }
};

/// A method or constructor as its class has it: native, of a language, or declared without a body.
struct Method {
  kcos::COSInternedBase name;
  const ClassRecord* owner = nullptr;
  MemberAccess access = MemberAccess::Public;
  Counts counts;
  bool isStatic = false;
  bool isAbstract = false;
  const kcos::COSMethodBase* native = nullptr;
  const NativeBody* body = nullptr;

  bool hasBody() const { return body != nullptr || (native != nullptr && native->hasBody()); }
  /// True if the object itself must be the first input.
  bool takesObjectFirst() const {
    return native != nullptr ? native->takesObjectFirst() : !isStatic;
  }
};

/// The overloads of one name.
using MethodSet = boost::container::small_vector<const Method*, 2>;

/// A property as its class has it: native, or stored in a slot, or computed.
struct Property {
  kcos::COSInternedBase name;
  const ClassRecord* owner = nullptr;
  MemberAccess getAccess = MemberAccess::Public;
  MemberAccess setAccess = MemberAccess::Public;
  unsigned flags = 0;
  const kcos::COSPropT* native = nullptr;
  const PropertyDefinition* definition = nullptr;  ///< of a language class

  bool isComputed() const { return definition != nullptr && definition->compute != nullptr; }
  bool hasSlot() const { return definition != nullptr && definition->compute == nullptr; }
  bool isAbstract() const { return native != nullptr && native->isAbstract(); }
};

/// A property as the objects of one class have it.
struct PropertyPlace {
  const Property* property = nullptr;
  std::uint32_t slot = 0;  ///< of a property with a slot
};

}  // namespace kv::host
