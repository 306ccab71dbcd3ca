#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <source_location>
#include <string>
#include <string_view>
#include <vector>

#include "kv/host/definitions.h"
#include "kv/host/errors.h"
#include "kv/host/values.h"

namespace kv::host {

struct SessionState;

struct SessionOptions {
  /// Collects at every creation of an object and verifies the heap after each collection.
  /// The environment variable KV_STRESS, when set and not 0, turns it on for all sessions.
  bool stress = false;
  /// False keeps classes per process: legal for a process that has one session.
  bool classesPerSession = true;
};

struct Warning {
  std::string identifier;
  std::vector<std::string> arguments;
  std::string message;
};

/// A member of a class as it was registered.
struct MemberDescription {
  std::string kind;  ///< "constructor", "property" or "method"
  std::string name;  ///< empty for a constructor
  int access = 0;    ///< of constructors and methods
  int getAccess = 0;
  int setAccess = 0;
  unsigned flags = 0;
  std::string form;  ///< of methods: "fixed", "variadic", "abstract" or "declared"
  bool isStatic = false;
  int inputs = -1;  ///< a count, the object included; -1 means variadic
  int outputs = -1;
};

struct ClassDescription {
  std::string name;
  std::vector<std::string> superclasses;
  bool isSealed = false;
  bool isNative = false;
  std::vector<MemberDescription> members;  ///< in the order of registration
};

/// A place in a front end's code: the same `code` and `position` mean the same frame for as long
/// as its source lives.
struct StackPlace {
  const void* code;
  int position;
};

/// Where the live user stacks of a session come from, for a front end that captures many.
class KV_HOST_API StackSource {
 public:
  virtual ~StackSource();
  /// Adds the places of the live stack, innermost first.
  virtual void capture(std::vector<StackPlace>& places) = 0;
  /// The frame of a place that was just captured. Called once for each place and stack below it,
  /// and again after the cache of places was cleared.
  virtual Frame resolve(const StackPlace& place) = 0;
};

/// Why a file that was read completely is still refused: which of its objects, and what is wrong.
struct LoadRefusal {
  std::size_t object;
  std::string reason;
};

/// Checks all objects of a file, which are filled, before any other code sees them. Runs no user's
/// code.
using LoadValidator =
    std::function<std::optional<LoadRefusal>(std::span<const kxArray* const> objects)>;

/// Builtins as native libraries export them; outputs come as raw slots or as owning ones.
using RawBuiltin = void (*)(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs);
using OwningBuiltin = void (*)(int nlhs, Value* plhs, int nrhs, const kxArray** prhs);

/// A session of the host: packages, classes, functions, session store, user stack, collector,
/// warnings. A process may hold many.
///
/// 1. A session belongs to the thread that made it, or to the one that leases it under a lock.
/// 2. The platform interface takes no session argument: it works in the thread's current session,
///    which a `Scope` sets and restores at each public entry point.
/// 3. Closing frees every object; values and references that outlive the session may still be
///    dropped, on any thread.
///
/// Errors: a use after `close` raises "KALVEX:session:Closed". Any call may raise
/// "KALVEX:OutOfMemory": as a native exception where no memory is left for a KException, and from
/// the constructor.
class KV_HOST_API Session {
 public:
  explicit Session(SessionOptions options = {});
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Makes a session the current one of this thread for as long as the scope lives.
  class KV_HOST_API Scope {
   public:
    explicit Scope(Session& session);
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    SessionState* previous_;
  };

  /// Frees every object. Requires: no call of the session runs.
  void close() noexcept;
  bool isClosed() const noexcept;

  // Definitions. They take effect with the next call.
  // Errors: "KALVEX:validateattributes:invalidType" for an empty name.
  void defineFunction(std::string_view name, NativeBody body);
  void defineBuiltin(std::string_view name, RawBuiltin builtin);
  void defineBuiltin(std::string_view name, OwningBuiltin builtin);
  /// Errors: "KALVEX:class:HasInstances", "KALVEX:class:SealedClass".
  void defineClass(std::shared_ptr<const ClassDefinition> definition);
  /// Errors: "KALVEX:class:NoSuchMember" for a method that the class doesn't declare.
  void completeClass(std::shared_ptr<const ClassCompletion> completion);

  /// Runs a library's entry point, such as one that enters classes in packages.
  void load(const std::function<void()>& entry);

  // Without `asClass` these have the rights of the class whose body makes the call; outside of
  // bodies, those of public code.

  /// A call by name, with the rights of `asClass`.
  std::vector<Value> call(std::string_view name, int nlhs, std::span<const kxArray* const> inputs,
                          std::string_view asClass = {});
  /// A new object of the class, by its constructor, whatever else the name may mean.
  Value construct(std::string_view className, std::span<const kxArray* const> inputs,
                  std::string_view asClass = {});
  Value get(const kxArray* object, std::string_view property, std::string_view asClass = {});
  void set(const kxArray* object, std::string_view property, const kxArray* value,
           std::string_view asClass = {});
  std::vector<Value> invoke(const kxArray* object, std::string_view method, int nlhs,
                            std::span<const kxArray* const> inputs, std::string_view asClass = {});
  void deleteObject(const kxArray* object);

  /// Load construction: an object of the class without running a constructor, its stored properties
  /// set through their setters in the order given, then notified that it was loaded.
  Value loadInstance(std::string_view className,
                     std::span<const std::pair<std::string, const kxArray*>> properties);
  /// Copy construction: a new object of the same class with the same stored properties.
  Value copyInstance(const kxArray* object);

  // Save and load: see docs/format.md.

  /// Saves a value with all objects that it refers to. The file appears whole or not at all: after
  /// a crash or an error, what was there before is still there.
  /// Errors: "KALVEX:save:NotSaveable" with class and reason; "KALVEX:save:CannotWrite" with path
  /// and reason.
  void save(const std::string& path, const kxArray* value);
  /// Loads what `save` wrote. Runs no user's code; without `trusted`, the loaded functions and
  /// operations refuse to be evaluated.
  /// Errors: "KALVEX:load:Corrupt" with section, offset and reason, "KALVEX:load:LaterFormat" with
  /// the file's release and format and ours, "KALVEX:load:UnknownClass" with the class,
  /// "KALVEX:load:CannotRead" with path and reason; nothing is left over then.
  Value load(const std::string& path, bool trusted);
  std::string saveBytes(const kxArray* value);
  Value loadBytes(std::string_view bytes, bool trusted);

  /// Adds a check of a library, which knows the rules of its objects, to each load.
  void addLoadValidator(LoadValidator validator);
  /// Declares that calling `method` on an object of `className` evaluates it: refused on an object
  /// that was loaded without trust.
  void guardMethod(std::string_view className, std::string_view method);

  ClassDescription describe(std::string_view name);
  /// Full names of the classes that libraries entered, in that order.
  std::vector<std::string> classes() const;

  /// Runs the collector. Result: the number of objects freed.
  std::size_t collect();
  std::size_t liveObjects(std::optional<std::string_view> className = std::nullopt) const;
  /// Walks the heap and names every broken invariant; empty when all hold.
  std::vector<std::string> verify() const;

  std::vector<Warning> warnings() const;
  void clearWarnings();

  /// The live user stack comes from `provider` while it is set, innermost frame first; otherwise
  /// from the call sites that are open (see CallSite).
  void setStackProvider(std::function<std::vector<Frame>()> provider);
  /// The same from a source, which takes precedence over a provider.
  void setStackSource(std::unique_ptr<StackSource> source);

  SessionState& state() noexcept { return *state_; }

 private:
  std::unique_ptr<SessionState> state_;
};

/// True if this thread has a current session.
KV_HOST_API bool hasCurrentSession() noexcept;

/// Records the user's line during a public call of a C++ front end: the frame is on the live user
/// stack of the current session. Frames are interned by file, name and line.
class KV_HOST_API CallSite {
 public:
  explicit CallSite(const std::source_location& where);
  ~CallSite();
  CallSite(const CallSite&) = delete;
  CallSite& operator=(const CallSite&) = delete;

 private:
  SessionState* session_;
};

/// What the process holds: all zero when every session is closed and every value dropped.
struct Ledger {
  std::size_t objects = 0;
  std::size_t arrays = 0;
  std::size_t payloads = 0;
  std::size_t payloadBytes = 0;
};
KV_HOST_API Ledger ledger() noexcept;

}  // namespace kv::host
