#pragma once

#include <exception>
#include <memory>
#include <string>

#include "kcos/class.h"
#include "kcos/interface.h"
#include "kcos/interned.h"
#include "kx/array.h"

/// Calls out into the host. All run in the current session, on its thread.

/// Calls by name: a method of the leftmost argument that is an object whose class has a method of
/// that name, a function, a class constructor, a static method "Class.name", a builtin.
///
/// Result: `plhs[0 .. max(nlhs, 1) - 1]` are owned by the caller; outputs not written are null.
/// Requires: room for max(nlhs, 1) outputs, all null.
/// Errors: "KALVEX:UndefinedFunction" with the name; what the callee raises, as KExceptionEnvelope.
KV_HOST_API void inCallFcn(int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs,
                           kcos::NameRef name);
KV_HOST_API void inCallFcn(int nlhs, kxArray** plhs, int nrhs, const kxArray* const* prhs,
                           kcos::COSInternedBase name);

/// The stack of the code that called into the host, as an n-by-1 structure with the fields "file",
/// "name" and "line", innermost first. The arguments are 1, 1 and 0.
[[nodiscard]] KV_HOST_API kxArray* inGetKfunctionStack(int skipInternal, int withNames, int flags);

namespace kcos {

/// Calls a method of a class, static or not, by class and name, with the rights of `client`.
///
/// Result: false, and nothing called, if the class has no such method or only declares it.
/// `plhs` as for `inCallFcn`. `last` has no effect.
KV_HOST_API bool omCallMethod(COSInternedBase className, COSInternedBase methodName,
                              const COSClient* client, int nlhs, kxArray** plhs, int nrhs,
                              const kxArray* const* prhs, bool last);

}  // namespace kcos

namespace Torvane::KException {

/// Carries a thrown KException object through native code.
class KV_HOST_API KExceptionEnvelope : public std::exception {
 public:
  explicit KExceptionEnvelope(kcos::COSInterfacePtr exception) noexcept;
  ~KExceptionEnvelope() override;
  KExceptionEnvelope(const KExceptionEnvelope&) noexcept;
  KExceptionEnvelope& operator=(const KExceptionEnvelope&) = delete;

  /// The KException object; a strong reference.
  const kcos::COSInterfacePtr& getException() const noexcept { return exception_; }

  /// Id, ": " and message, UTF-8.
  const char* what() const noexcept override;

 private:
  kcos::COSInterfacePtr exception_;
  std::shared_ptr<const std::string> text_;
};

}  // namespace Torvane::KException
