#include "execution/failures.h"

#include "kv/host/errors.h"
#include "kv/runtime/FunctionError.h"
#include "values/hostNames.h"

namespace kv::runtime {
namespace {

using host::Value;
using Torvane::KException::KExceptionEnvelope;

Value exceptionObject(const KExceptionEnvelope& envelope) {
  return matrix::from_kalvex(kcos::omCreateKCOSScalar(envelope.getException()));
}

/// Runs `raiser`, which raises, and hands out the exception as an object.
template <class Raiser>
Value caught(Raiser&& raiser) {
  try {
    raiser();
  } catch (const KExceptionEnvelope& envelope) {
    return exceptionObject(envelope);
  }
  return nullptr;
}

/// The failure as an exception object; null for an error of the data, which goes out as it is.
Value failureObject(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const KExceptionEnvelope& envelope) {
    return exceptionObject(envelope);
  } catch (const FunctionError& error) {
    return caught([&] { raiseAsHostError(error); });
  } catch (const IdentifiedError& error) {
    raiseAsHostError(error);
  }
}

}  // namespace

void raiseAsHostError(const IdentifiedError& error) {
  host::raiseWithMessage(error.id(), error.what(), error.arguments());
}

void raiseStepFailure(const std::exception_ptr& failure, const kxArray* submissionStack,
                      const std::optional<FailedRows>& rows) {
  Value exception = failureObject(failure);
  if (!kxIsA(exception.get(), kBigDataException)) {
    exception = host::call("kalvex.bigdata.BigDataException.build", {exception.get()});
    if (submissionStack != nullptr && !kxIsEmpty(submissionStack)) {
      exception = host::call("attachSubmissionStack", {exception.get(), submissionStack});
    }
  }
  if (rows) {
    const Value partition = host::makeDouble(static_cast<double>(rows->partition));
    const Value first = host::makeDouble(static_cast<double>(rows->first));
    const Value last = host::makeDouble(static_cast<double>(rows->last));
    host::call("attachRows", {exception.get(), partition.get(), first.get(), last.get()});
  }
  host::throwException(exception.get());
}

}  // namespace kv::runtime
