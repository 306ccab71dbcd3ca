#include "engine/failures.h"

#include <new>
#include <string>
#include <vector>

#include "foundation/exception.h"
#include "foundation/i18n.h"
#include "kv/runtime/DataError.h"
#include "values/hostNames.h"

namespace kv::runtime {
namespace {

using foundation::core::except::IMsgIDException;
using host::Value;
using Torvane::KException::KExceptionEnvelope;

/// What a call by name makes of an exception that has no id.
constexpr std::string_view kNativeException = "KALVEX:NativeException";

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

/// A C++ exception with nothing but a text: a user's function may throw one, we should not.
[[noreturn]] void raiseNative(const OpSpec& spec, const std::string& text) {
  host::raise(spec.runsUsersFunction() ? "KALVEX:array:FunctionFailed" : "KALVEX:array:Unexpected",
              {spec.label, text});
}

[[noreturn]] void raiseNativeId(const IMsgIDException& error) {
  std::vector<std::string> arguments;
  for (const std::u16string& argument : error.get_arguments()) {
    arguments.push_back(fl::i18n::to_string(argument));
  }
  host::raise(error.get_error_id(), arguments);
}

/// Raises `failure` as an error of the host, unless it is none.
[[noreturn]] void raiseInHost(const std::exception_ptr& failure, const OpSpec& spec) {
  try {
    std::rethrow_exception(failure);
  } catch (const KExceptionEnvelope&) {
    throw;
  } catch (const IdentifiedError& error) {
    raiseAsHostError(error);
  } catch (const IMsgIDException& error) {
    raiseNativeId(error);
  } catch (const std::bad_alloc&) {
    host::raise("KALVEX:OutOfMemory");
  } catch (const std::exception& error) {
    raiseNative(spec, error.what());
  } catch (...) {
    raiseNative(spec, "an exception that isn't a std::exception");
  }
}

/// `exception`, with an id of its own if it has none.
Value withId(Value exception, const OpSpec& spec) {
  const host::ErrorRecord record =
      host::errorRecord(KExceptionEnvelope(kcos::omGetArrayElement(exception.get(), 0)));
  if (record.identifier != kNativeException) {
    return exception;
  }
  const Value named = caught([&] { raiseNative(spec, record.message); });
  for (const char* name : {"identifier", "message", "arguments"}) {
    const auto property = kcos::NameRef::of(name);
    host::setSlot(exception.get(), property, host::getProperty(named.get(), property));
  }
  return exception;
}

bool isDataError(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const DataError&) {
    return true;
  } catch (...) {
    return false;
  }
}

void attachRows(const kxArray* exception, const FailedRows& rows) {
  const Value partition = host::makeDouble(static_cast<double>(rows.partition));
  const Value first = host::makeDouble(static_cast<double>(rows.first));
  const Value last = host::makeDouble(static_cast<double>(rows.last));
  host::call("attachRows", {exception, partition.get(), first.get(), last.get()});
}

}  // namespace

void raiseAsHostError(const IdentifiedError& error) {
  host::raiseWithMessage(error.id(), error.what(), error.arguments());
}

Value submissionStackOf(const kxArray* factory) {
  return factory != nullptr && kcos::omIsKCOS(factory)
             ? host::getProperty(factory, "SubmissionStack")
             : nullptr;
}

void raiseStepFailure(const std::exception_ptr& failure, const OpSpec& spec,
                      const kxArray* submissionStack, const std::optional<FailedRows>& rows) {
  Value exception = caught([&] { raiseInHost(failure, spec); });
  if (!kxIsA(exception.get(), kBigDataException)) {
    exception = host::call("kalvex.bigdata.BigDataException.build", {exception.get()});
    if (submissionStack != nullptr && !kxIsEmpty(submissionStack)) {
      exception = host::call("attachSubmissionStack", {exception.get(), submissionStack});
    }
  }
  exception = withId(std::move(exception), spec);
  const bool hasRows = !kxIsEmpty(host::getProperty(exception.get(), "partition").get());
  if (rows && !hasRows && isDataError(failure)) {  // its message names file and row
    host::setSlot(exception.get(), "partition",
                  host::makeDouble(static_cast<double>(rows->partition)));
  } else if (rows && !hasRows) {
    attachRows(exception.get(), *rows);
  }
  host::throwException(exception.get());
}

}  // namespace kv::runtime
