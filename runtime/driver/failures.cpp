#include "driver/failures.h"

#include <string>
#include <vector>

#include "foundation/exception.h"
#include "foundation/i18n.h"
#include "kv/errors/ErrorRow.h"
#include "kv/host/errors.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using foundation::core::except::IMsgIDException;
using host::Value;
using Torvane::KException::KExceptionEnvelope;

Value exceptionObject(const KExceptionEnvelope& envelope) {
  return matrix::from_kalvex(kcos::omCreateKCOSScalar(envelope.getException()));
}

std::vector<std::string> argumentsOf(const IMsgIDException& error) {
  std::vector<std::string> arguments;
  for (const std::u16string& argument : error.get_arguments()) {
    arguments.push_back(fl::i18n::to_string(argument));
  }
  return arguments;
}

/// The failure as an object: the host's own error if it is one.
Value exceptionObject(const errors::FailureRecord& failure) {
  if (failure.foreign != nullptr) {
    try {
      std::rethrow_exception(failure.foreign);
    } catch (const KExceptionEnvelope& envelope) {
      return exceptionObject(envelope);
    } catch (...) {  // of another kind: the record has what can be known of it
    }
  }
  return matrix::from_kalvex(kcos::omCreateKCOSScalar(host::exceptionOf(failure.error)));
}

/// The failure with an id that says what it means in a step, if all it has is the text of a C++
/// exception: a user's function may throw one, we should not.
errors::FailureRecord named(errors::FailureRecord failure, const OpSpec& spec) {
  errors::ErrorRecord& error = failure.error;
  if (error.identifier == errors::kNativeException) {
    error.identifier = spec.callsUser ? "KALVEX:array:FunctionFailed" : "KALVEX:array:Unexpected";
    error.arguments = {spec.label, error.message};
    error.message = errors::formatMessage(error.identifier, error.arguments);
    failure.foreign = nullptr;  // has nothing that the record lacks
  }
  return failure;
}

/// True for an error of the data itself, which no session has made or changed: its message names
/// file and row.
bool namesPlace(const errors::ErrorRecord& error) {
  const errors::ErrorRow* row = errors::findErrorRow(error.identifier);
  return error.className.empty() && row != nullptr && row->namesPlace;
}

void attachRows(const kxArray* exception, const FailedRows& rows) {
  const Value partition = host::makeDouble(static_cast<double>(rows.partition));
  const Value first = host::makeDouble(static_cast<double>(rows.first));
  const Value last = host::makeDouble(static_cast<double>(rows.last));
  host::call("attachRows", {exception, partition.get(), first.get(), last.get()});
}

}  // namespace

errors::FailureRecord failureOf(const std::exception_ptr& thrown) {
  errors::FailureRecord failure;
  try {
    std::rethrow_exception(thrown);
  } catch (const KExceptionEnvelope& envelope) {
    failure.error = host::errorRecord(envelope);
    failure.foreign = thrown;
  } catch (const IMsgIDException& error) {
    failure.error.identifier = error.get_error_id();
    failure.error.arguments = argumentsOf(error);
    failure.error.message = host::catalogueText(failure.error.identifier, failure.error.arguments);
  } catch (...) {
    failure = errors::recordFailure(thrown);
  }
  return failure;
}

Value submissionStackOf(const kxArray* factory) {
  return factory != nullptr && kcos::omIsKCOS(factory)
             ? host::getProperty(factory, "SubmissionStack")
             : nullptr;
}

void raiseStepFailure(const errors::FailureRecord& failure, const OpSpec& spec,
                      const kxArray* submissionStack, const std::optional<FailedRows>& rows) {
  Value exception = exceptionObject(named(failure, spec));
  if (!kxIsA(exception.get(), kBigDataException)) {
    exception = host::call("kalvex.bigdata.BigDataException.build", {exception.get()});
    if (submissionStack != nullptr && !kxIsEmpty(submissionStack)) {
      exception = host::call("attachSubmissionStack", {exception.get(), submissionStack});
    }
  }
  const bool hasRows = !kxIsEmpty(host::getProperty(exception.get(), "partition").get());
  if (rows && !hasRows && namesPlace(failure.error)) {
    host::setSlot(exception.get(), "partition",
                  host::makeDouble(static_cast<double>(rows->partition)));
  } else if (rows && !hasRows) {
    attachRows(exception.get(), *rows);
    host::setSlot(exception.get(), "file", host::makeChars(rows->file));
  }
  host::throwException(exception.get());
}

}  // namespace kv::runtime
