// The edge between native exceptions and the errors of the host. Inside, code throws C++ exceptions
// of any type; what leaves a bound call is a KException in its envelope. Where memory is too short
// even for that, it is an exception that stays native and allocates nothing.

#include "session/edge.h"

#include <cxxabi.h>

#include <cassert>
#include <exception>
#include <new>

#include "foundation/exception.h"
#include "kv/errors/StepError.h"
#include "kv/host/errors.h"
#include "session/NativeError.h"
#include "session/SessionState.h"

namespace kv::host {

namespace {

using foundation::core::except::IMsgIDException;
using Torvane::KException::KExceptionEnvelope;

std::vector<std::string> argumentsOf(const IMsgIDException& error) {
  std::vector<std::string> arguments;
  for (const std::u16string& argument : error.get_arguments()) {
    arguments.push_back(fl::i18n::to_string(argument));
  }
  return arguments;
}

/// Throws the exception that is being handled as a KException of the current session.
[[noreturn]] void throwInSession() {
  try {
    throw;
  } catch (const KExceptionEnvelope&) {
    throw;
  } catch (const PassThrough&) {
    throw;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const IMsgIDException& error) {
    const std::vector<std::string> arguments = argumentsOf(error);
    raiseWithMessage(error.get_error_id(), catalogueText(error.get_error_id(), arguments),
                     arguments);
  } catch (const errors::StepError& error) {
    raiseWithMessage(error.id(), error.what(), error.arguments());
  } catch (const std::bad_alloc&) {
    raise("KALVEX:OutOfMemory");
  } catch (const std::exception& error) {
    raise("KALVEX:NativeException", {error.what()});
  } catch (...) {
    raise("KALVEX:NativeException", {"an exception that isn't a std::exception"});
  }
}

}  // namespace

void throwAtEdge() {
  assert(std::current_exception() != nullptr);
  try {
    if (currentSession() == nullptr) {
      throw;  // nothing can hold a KException
    }
    throwInSession();
  } catch (const std::bad_alloc&) {
    throw OutOfMemory();
  }
}

}  // namespace kv::host
