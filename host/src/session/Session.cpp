// The public face of a session. Each function makes the session current, passes a safe point, and
// turns native exceptions into KExceptions (`inSession`); what it does is in the files that it
// calls.

#include "kv/host/session.h"

#include <atomic>
#include <utility>

#include "kv/host/collectGarbage.h"
#include "kv/host/rawOutputs.h"
#include "name/names.h"
#include "session/NativeError.h"
#include "session/access.h"
#include "session/construction.h"
#include "session/describe.h"
#include "session/dispatch.h"
#include "session/edge.h"
#include "session/inSession.h"
#include "session/instances.h"
#include "session/invoke.h"
#include "session/kException.h"
#include "session/objects.h"
#include "session/overloads.h"
#include "session/programDefinitions.h"
#include "session/properties.h"
#include "session/running.h"

namespace kv::host {

namespace {

/// How many sessions are open, or `kAlone` for one that keeps its classes per process.
std::atomic<int> openSessions{0};
constexpr int kAlone = -1;

/// Counts a new session; one that keeps its classes per process must be the only one.
void enterProcess(const SessionOptions& options) {
  int open = openSessions;
  int next = 0;
  do {
    if (open == kAlone || (!options.classesPerSession && open > 0)) {
      throw NativeError("KALVEX:session:NotAlone", {});
    }
    next = options.classesPerSession ? open + 1 : kAlone;
  } while (!openSessions.compare_exchange_weak(open, next));
}

void leaveProcess(const SessionOptions& options) noexcept {
  if (options.classesPerSession) {
    --openSessions;
  } else {
    openSessions = 0;
  }
}

/// What is defined while it lives belongs to a library.
class LibraryScope {
 public:
  explicit LibraryScope(SessionState& session)
      : calls_(session.calls),
        journal_(ProgramJournal::of(session)),
        before_(calls_.setLoadingLibrary(true)) {
    ++journal_.librariesLoading;
  }
  ~LibraryScope() {
    --journal_.librariesLoading;
    calls_.setLoadingLibrary(before_);
  }
  LibraryScope(const LibraryScope&) = delete;
  LibraryScope& operator=(const LibraryScope&) = delete;

 private:
  CallTable& calls_;
  ProgramJournal& journal_;
  bool before_;
};

/// The class whose rights a call has: the one asked for, or else that of the calling body; null for
/// public code.
const ClassRecord* rightsOf(const SessionState& session, std::string_view asClass) {
  return asClass.empty() ? session.caller : &session.classes.require(interned(asClass));
}

/// Calls a method on an object, or a static one of its class without it.
void invokeOn(SessionState& session, Object& object, kcos::COSInternedBase name,
              const Call& withObject) {
  const ClassRecord& record = classOf(object);
  const MethodSet* set = record.linked().methods.find(name);
  if (set == nullptr) {
    raiseNoSuchMember(record, name);
  }
  const auto choose = [&](MethodKind kind, int inputs) {
    return chooseOverload(*set, kind, withObject.nlhs, inputs, session.caller);
  };
  if (const Method* method = choose(MethodKind::Instance, withObject.nrhs)) {
    invokeMethod(session, *method, withObject, &object);
  } else if (const Method* shared = choose(MethodKind::Static, withObject.nrhs - 1)) {
    invokeMethod(session, *shared,
                 {withObject.nlhs, withObject.plhs, withObject.nrhs - 1, withObject.prhs + 1},
                 nullptr);
  } else {
    raiseNoSuchMember(record, name);
  }
}

}  // namespace

Session::Session(SessionOptions options) {
  enterProcess(options);
  try {
    state_ = std::make_unique<SessionState>(options);
    const Scope scope(*this);
    state_->classes.define(kExceptionDefinition());
  } catch (...) {
    state_ = nullptr;
    leaveProcess(options);
    throwAtEdge();
  }
}

Session::~Session() { close(); }

void Session::close() noexcept {
  if (!isClosed()) {
    closeSession(*state_);
    leaveProcess(state_->options);
  }
}

bool Session::isClosed() const noexcept { return state_->isClosed; }

Session::Scope::Scope(Session& session) {
  refuseClosed(session.isClosed());
  previous_ = setCurrentSession(session.state_.get());
}

Session::Scope::~Scope() {
  setCurrentSession(previous_ != nullptr && previous_->isClosed ? nullptr : previous_);
}

void Session::defineFunction(std::string_view name, NativeBody body) {
  inSession(*this, [&] {
    const kcos::COSInternedBase function = requireName(name);
    ProgramJournal::of(*state_).note(function);
    state_->calls.defineFunction(function, std::move(body));
  });
}

void Session::defineBuiltin(std::string_view name, RawBuiltin builtin) {
  inSession(*this, [&] { state_->calls.binding(requireName(name)).rawBuiltin = builtin; });
}

void Session::defineBuiltin(std::string_view name, OwningBuiltin builtin) {
  inSession(*this, [&] { state_->calls.binding(requireName(name)).owningBuiltin = builtin; });
}

void Session::defineClass(std::shared_ptr<const ClassDefinition> definition) {
  inSession(*this, [&] {
    state_->classes.define(definition);
    ProgramJournal::of(*state_).note(std::move(definition));
  });
}

void Session::completeClass(std::shared_ptr<const ClassCompletion> completion) {
  inSession(*this, [&] {
    state_->classes.complete(completion);
    ProgramJournal::of(*state_).note(std::move(completion));
  });
}

void Session::load(const std::function<void()>& entry) {
  inSession(*this, [&] {
    const LibraryScope library(*state_);
    entry();
  });
}

void Session::addLoadValidator(LoadValidator validator) {
  inSession(*this, [&] { state_->loadValidators.push_back(std::move(validator)); });
}

void Session::guardMethod(std::string_view className, std::string_view method) {
  inSession(*this, [&] {
    state_->guardedMethods.push_back({requireName(className), requireName(method)});
  });
}

std::vector<Value> Session::call(std::string_view name, int nlhs,
                                 std::span<const kxArray* const> inputs, std::string_view asClass) {
  return inSession(*this, [&] {
    RawOutputs outputs(nlhs);
    const RunningScope running(*state_, rightsOf(*state_, asClass));
    callByName(*state_, interned(name),
               {nlhs, outputs.data(), static_cast<int>(inputs.size()), inputs.data()});
    return outputs.takeAll();
  });
}

Value Session::construct(std::string_view className, std::span<const kxArray* const> inputs,
                         std::string_view asClass) {
  return inSession(*this, [&] {
    RawOutputs outputs(1);
    const RunningScope running(*state_, rightsOf(*state_, asClass));
    constructObject(*state_, state_->classes.require(interned(className)),
                    {1, outputs.data(), static_cast<int>(inputs.size()), inputs.data()});
    return outputs.take(0);
  });
}

Value Session::get(const kxArray* object, std::string_view property, std::string_view asClass) {
  return inSession(*this, [&] {
    return readProperty(*state_, requireObject(object), interned(property),
                        rightsOf(*state_, asClass));
  });
}

void Session::set(const kxArray* object, std::string_view property, const kxArray* value,
                  std::string_view asClass) {
  inSession(*this, [&] {
    writeProperty(*state_, requireObject(object), interned(property), value,
                  rightsOf(*state_, asClass));
  });
}

std::vector<Value> Session::invoke(const kxArray* object, std::string_view method, int nlhs,
                                   std::span<const kxArray* const> inputs,
                                   std::string_view asClass) {
  return inSession(*this, [&] {
    RawOutputs outputs(nlhs);
    std::vector<const kxArray*> all{object};
    all.insert(all.end(), inputs.begin(), inputs.end());
    const RunningScope running(*state_, rightsOf(*state_, asClass));
    invokeOn(*state_, requireObject(object), interned(method),
             {nlhs, outputs.data(), static_cast<int>(all.size()), all.data()});
    return outputs.takeAll();
  });
}

void Session::deleteObject(const kxArray* object) {
  inSession(*this, [&] {
    if (Object* target = scalarObject(object)) {
      state_->heap.deleteObject(*target);
    } else {
      raiseInvalidType("Input", "scalar object", object);
    }
  });
}

Value Session::loadInstance(std::string_view className,
                            std::span<const std::pair<std::string, const kxArray*>> properties) {
  return inSession(*this, [&] {
    return kv::host::loadInstance(*state_, state_->classes.require(interned(className)),
                                  properties);
  });
}

Value Session::copyInstance(const kxArray* object) {
  return inSession(*this, [&] { return kv::host::copyInstance(*state_, requireObject(object)); });
}

ClassDescription Session::describe(std::string_view name) {
  return inSession(*this, [&] { return describeClass(state_->classes.require(interned(name))); });
}

std::vector<std::string> Session::classes() const {
  refuseClosed(isClosed());
  std::vector<std::string> names;
  for (const ClassRecord* record : state_->classes.entered()) {
    names.emplace_back(record->getName());
  }
  return names;
}

std::size_t collectGarbage() { return requireSession().heap.collect(); }

std::size_t Session::collect() {
  const Scope scope(*this);
  return state_->heap.collect();
}

std::size_t Session::liveObjects(std::optional<std::string_view> className) const {
  refuseClosed(isClosed());
  state_->heap.dropWaiting();
  if (!className) {
    return state_->heap.liveObjects();
  }
  const ClassRecord* record = state_->classes.find(interned(*className));
  return record != nullptr ? state_->heap.liveObjects(*record) : 0;
}

std::vector<std::string> Session::verify() const {
  refuseClosed(isClosed());
  return state_->heap.verify();
}

std::vector<Warning> Session::warnings() const {
  refuseClosed(isClosed());
  return state_->warnings;
}

void Session::clearWarnings() {
  refuseClosed(isClosed());
  state_->warnings.clear();
}

void Session::setStackProvider(std::function<std::vector<Frame>()> provider) {
  refuseClosed(isClosed());
  state_->stacks.setProvider(std::move(provider));
}

void Session::setStackSource(std::unique_ptr<StackSource> source) {
  refuseClosed(isClosed());
  state_->stacks.setSource(std::move(source));
}

StackSource::~StackSource() = default;

bool hasCurrentSession() noexcept { return currentSession() != nullptr; }

}  // namespace kv::host

void kxWarningMsgId(std::string_view identifier, std::span<const std::string> arguments) {
  kv::host::requireSession().warnings.push_back({std::string(identifier),
                                                 {arguments.begin(), arguments.end()},
                                                 kv::host::catalogueText(identifier, arguments)});
}
