// Every exception that leaves the library passes through here and becomes one of two public types.
// Lack of memory needs care: its error object must exist before it is needed, because there may be
// no memory left to create it.

#include "publicCall.h"

#include <atomic>
#include <cassert>
#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/exception.h"
#include "foundation/i18n.h"
#include "kv/errors/ErrorRow.h"
#include "kv/errors/StepError.h"
#include "kv/host/SessionPause.h"
#include "kv/host/errors.h"
#include "kv/host/values.h"
#include "kv/runtime/runtime.h"
#include "rowFunctions.h"

namespace kv {

namespace {

/// Null for an exception that has no such number.
std::optional<std::int64_t> numberIn(const kxArray* exception, std::string_view property) {
  const host::Value value = host::getSlot(exception, kcos::NameRef::of(property));
  const bool isNumber = kxGetClassID(value.get()) == kxDOUBLE_CLASS && kxIsScalar(value.get());
  return isNumber ? std::optional(static_cast<std::int64_t>(kxGetScalar(value.get())))
                  : std::nullopt;
}

ErrorPlace placeOf(const kcos::COSInterfacePtr& thrown) {
  const host::Value exception = matrix::from_kalvex(kcos::omCreateKCOSScalar(thrown));
  if (thrown->isDeleted() || !kxIsA(exception.get(), "kalvex.bigdata.BigDataException")) {
    return {};
  }
  const host::Value file = host::getSlot(exception.get(), "file");
  return {numberIn(exception.get(), "partition"), numberIn(exception.get(), "firstRow"),
          numberIn(exception.get(), "lastRow"),
          kxGetClassID(file.get()) == kxCHAR_CLASS ? host::toText(file.get()) : std::string()};
}

Error toError(const host::ErrorRecord& record, const ErrorPlace& place = {}) {
  std::vector<StackFrame> stack;
  for (const host::Frame& frame : record.stack) {
    stack.push_back({frame.file, frame.name, frame.line});
  }
  std::shared_ptr<const Error> cause;
  if (!record.causes.empty()) {
    cause = std::make_shared<Error>(toError(record.causes.front()));
  }
  return {record.identifier, record.message,   record.arguments,
          std::move(stack),  std::move(cause), place};
}

Error toError(const foundation::core::except::IMsgIDException& native) {
  std::vector<std::string> arguments;
  for (const std::u16string& argument : native.get_arguments()) {
    arguments.push_back(fl::i18n::to_string(argument));
  }
  const std::string identifier = native.get_error_id();
  return {identifier, host::catalogueText(identifier, arguments), arguments};
}

std::atomic<std::unique_ptr<Waiting> (*)()> makeWaiting = nullptr;

/// Constructed early, while memory is available.
const Error kOutOfMemory("KALVEX:OutOfMemory", errors::formatMessage("KALVEX:OutOfMemory", {}));

[[noreturn]] void rethrowConverted() {
  try {
    throw;
  } catch (const Error&) {
    throw;
  } catch (const Interrupted&) {
    throw;
  } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
    throw toError(host::errorRecord(envelope), placeOf(envelope.getException()));
  } catch (const foundation::core::except::IMsgIDException& native) {
    throw toError(native);
  } catch (const errors::StepError& error) {
    throw Error(error.id(), error.what(), error.arguments());
  } catch (const runtime::Interrupted&) {
    throw Interrupted();
  } catch (const host::PassThrough&) {
    throw;  // of the front end's own
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& error) {
    raiseError("KALVEX:array:Unexpected",
               {"The call", error.what()});  // a fault of ours without an id
  }
}

/// What a public call does while its units run: other threads may make calls of their own.
class Pausing final : public runtime::SessionLease::Released {
 public:
  explicit Pausing(Session::Impl& session)
      : session_(session), where_(session.where), stack_(host::call("userStackBuiltin")) {
    session_.frame = nullptr;
    session_.site.reset();
    paused_.emplace();
    session_.depth = 0;
    ++session_.paused;
    session_.mutex.unlock();
  }

  ~Pausing() override {
    lockSession(session_);
    session_.depth = 1;
    if (--session_.paused == 0) {
      session_.idle.notify_all();
    }
    paused_.reset();
    session_.where = where_;
    try {
      session_.site.emplace(*where_);
      session_.frame = host::call("kalvex.bigdata.internal.InternalStackFrame", {stack_.get()});
    } catch (...) {
      // Out of memory: what is recorded until the call ends has no line.
    }
  }

 private:
  Session::Impl& session_;
  const Where* where_;
  host::Value stack_;
  std::optional<host::SessionPause> paused_;
};

class Lease final : public runtime::SessionLease {
 public:
  explicit Lease(Session::Impl& session) : session_(session) {}

  bool isReleasable() const noexcept override { return session_.depth == 1; }

  std::unique_ptr<Released> release() noexcept override {
    try {
      return isReleasable() ? std::make_unique<Pausing>(session_) : nullptr;
    } catch (...) {
      return nullptr;  // out of memory
    }
  }

 private:
  Session::Impl& session_;
};

}  // namespace

Session::Impl::Impl() : lease(std::make_unique<Lease>(*this)) {
  const host::Session::Scope scope(host);
  translated([&] {
    runtime::load(host);
    defineRowFunctions(host);
    interrupts = runtime::sessionInterrupts();
    runtime::setSessionLease(lease.get());
  });
}

void rethrowAsOurs() {
  assert(std::current_exception() != nullptr);
  try {
    rethrowConverted();
  } catch (const std::bad_alloc&) {
    throw kOutOfMemory;
  }
}

void raiseClosed() { raiseError("KALVEX:session:Closed"); }

Waiting::~Waiting() = default;

void setWaiting(std::unique_ptr<Waiting> (*begin)()) { makeWaiting = begin; }

void lockSession(Session::Impl& session) noexcept {
  if (session.mutex.try_lock()) {
    return;
  }
  std::unique_ptr<Waiting> waiting;
  try {
    const auto make = makeWaiting.load();
    waiting = make != nullptr ? make() : nullptr;
  } catch (const std::bad_alloc&) {
    // It waits without the front end's knowledge.
  }
  session.mutex.lock();
}

}  // namespace kv
