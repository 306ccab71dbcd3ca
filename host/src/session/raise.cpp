#include <cassert>
#include <string>

#include "kv/errors/ErrorRow.h"
#include "kv/host/errors.h"
#include "session/NativeError.h"
#include "session/SessionState.h"
#include "session/kException.h"
#include "session/objects.h"

namespace Torvane::KException {

KExceptionEnvelope::KExceptionEnvelope(kcos::COSInterfacePtr thrown) noexcept
    : exception_(std::move(thrown)) {
  try {
    const kv::host::ErrorRecord record = kv::host::readKException(exception_);
    text_ = std::make_shared<const std::string>(record.identifier + ": " + record.message);
  } catch (const std::exception&) {
    text_ = nullptr;  // no memory for the text; the object has it
  }
}

KExceptionEnvelope::~KExceptionEnvelope() = default;
KExceptionEnvelope::KExceptionEnvelope(const KExceptionEnvelope&) noexcept = default;

const char* KExceptionEnvelope::what() const noexcept {
  return text_ ? text_->c_str() : "KException";
}

}  // namespace Torvane::KException

namespace kv::host {

using Torvane::KException::KExceptionEnvelope;

ErrorRecord errorRecord(const KExceptionEnvelope& envelope) {
  return readKException(envelope.getException());
}

void raise(std::string_view identifier, const std::vector<std::string>& arguments) {
  assert(errors::fitsRow(identifier, arguments.size()));
  raiseWithMessage(identifier, catalogueText(identifier, arguments), arguments);
}

void raiseWithMessage(std::string_view identifier, std::string_view message,
                      const std::vector<std::string>& arguments) {
  SessionState* session = currentSession();
  if (session == nullptr) {
    throw NativeError(identifier, arguments);
  }
  throw KExceptionEnvelope(makeKException(*session, identifier, message, arguments));
}

void throwException(const kxArray* exception) {
  if (!kcos::omIsKCOS(exception) || !kxIsScalar(exception) || !kxIsA(exception, "KException")) {
    raiseInvalidType("Input", "scalar KException", exception);
  }
  throw KExceptionEnvelope(kcos::omGetArrayElement(exception, 0));
}

}  // namespace kv::host
