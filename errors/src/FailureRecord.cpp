#include "kv/errors/FailureRecord.h"

#include <cassert>
#include <new>
#include <utility>

#include "kv/errors/ErrorRow.h"
#include "kv/errors/StepError.h"

namespace kv::errors {

namespace {

ErrorRecord recordOf(std::string_view id, std::vector<std::string> arguments) {
  ErrorRecord record;
  record.identifier = id;
  record.message = formatMessage(id, arguments);
  record.arguments = std::move(arguments);
  return record;
}

}  // namespace

struct RecordedError::Content {
  ErrorRecord record;
  std::exception_ptr foreign;
};

RecordedError::RecordedError(ErrorRecord record, std::exception_ptr foreign)
    : content_(std::make_shared<const Content>(std::move(record), std::move(foreign))) {}

RecordedError::~RecordedError() = default;
RecordedError::RecordedError(const RecordedError&) noexcept = default;

const ErrorRecord& RecordedError::record() const noexcept { return content_->record; }
const std::exception_ptr& RecordedError::foreign() const noexcept { return content_->foreign; }
const char* RecordedError::what() const noexcept { return content_->record.message.c_str(); }

FailureRecord recordFailure(const std::exception_ptr& thrown) {
  assert(thrown != nullptr);
  FailureRecord failure;
  try {
    std::rethrow_exception(thrown);
  } catch (const RecordedError& error) {
    failure.error = error.record();
    failure.foreign = error.foreign();
  } catch (const StepError& error) {
    failure.error.identifier = error.id();
    failure.error.message = error.what();
    failure.error.arguments = error.arguments();
  } catch (const std::bad_alloc&) {
    failure.error = recordOf("KALVEX:OutOfMemory", {});
  } catch (const std::exception& error) {
    failure.error = recordOf(kNativeException, {error.what()});
  } catch (...) {
    failure.error = recordOf(kNativeException, {"an exception that isn't a std::exception"});
  }
  return failure;
}

}  // namespace kv::errors
