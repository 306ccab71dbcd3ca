#pragma once

#include <initializer_list>
#include <span>

#include "kcos/calls.h"
#include "kcos/interned.h"
#include "kx/array.h"

/// Calls from native code into the host; their outputs are owned from the start.
namespace bigdata::ki {

using matrix::ArrayPtr;

/// Calls the host function `name` with one output.
/// Result: the output; null if the function didn't set it.
/// Errors: those of the host, as KExceptionEnvelope.
ArrayPtr callHost(kcos::NameRef name, std::span<const kxArray* const> inputs);
inline ArrayPtr callHost(kcos::NameRef name, std::initializer_list<const kxArray*> inputs = {}) {
  return callHost(name, std::span(inputs.begin(), inputs.size()));
}

/// Calls the host function `name` for its side effects.
void callHostForEffect(kcos::NameRef name, std::initializer_list<const kxArray*> inputs);

/// Calls a method of a class by name with one output, with the rights of `client`. `last` is the
/// last flag of `omCallMethod`.
/// Errors: "KALVEX:bigdata:array:InternalError" with "Could not find method ", class and method if
///         the class has no such method.
ArrayPtr callHostMethod(kcos::COSInternedBase className, kcos::NameRef method,
                        const kcos::COSClient* client, std::span<const kxArray* const> inputs,
                        bool last = false);
inline ArrayPtr callHostMethod(kcos::COSInternedBase className, kcos::NameRef method,
                               const kcos::COSClient* client,
                               std::initializer_list<const kxArray*> inputs, bool last = false) {
  return callHostMethod(className, method, client, std::span(inputs.begin(), inputs.size()), last);
}

/// The same without an output.
void callHostMethodForEffect(kcos::COSInternedBase className, kcos::NameRef method,
                             const kcos::COSClient* client,
                             std::initializer_list<const kxArray*> inputs);

/// A property of a scalar object, as a shared copy.
ArrayPtr readHostProperty(const kxArray* object, kcos::NameRef name);

}  // namespace bigdata::ki
