#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/exception.h"
#include "kv/host/session.h"

namespace bigdata {

using kv::host::Call;
using kv::host::Value;

/// The id and the arguments of the error that `action` ends with, separated by " | ", whether the
/// error comes from native code or from the host; "no error" if there is none.
std::string errorOf(const std::function<void()>& action);

/// The result of `errorOf` for an internal error with that text.
std::string internalError(std::string_view text);

/// A number, a flag or a text as it reads; for anything else its class, without the package.
std::string shown(const kxArray* value);

/// A session with the core and its builtins and nothing else: what the core reaches by name is
/// absent until a test defines it. After each test the heap is verified.
class CoreSession : public ::testing::Test {
 protected:
  struct HostCall {
    std::string name;
    std::vector<Value> inputs;
  };

  CoreSession();
  void TearDown() override;

  // Calls by name, with the rights of public code.
  template <class... Inputs>
  Value call(std::string_view name, const Inputs&... inputs) {
    return callWith(name, {raw(inputs)...});
  }
  template <class... Inputs>
  Value invoke(const Value& object, std::string_view method, const Inputs&... inputs) {
    return invokeWith(object, method, {raw(inputs)...});
  }
  /// Makes an object of the class with that name in "kalvex.bigdata.internal".
  template <class... Inputs>
  Value make(const std::string& className, const Inputs&... inputs) {
    return callWith("kalvex.bigdata.internal." + className, {raw(inputs)...});
  }
  Value callWith(std::string_view name, std::initializer_list<const kxArray*> inputs);
  Value invokeWith(const Value& object, std::string_view method,
                   std::initializer_list<const kxArray*> inputs);

  Value get(const Value& object, std::string_view property) {
    return session.get(object.get(), property);
  }
  double getDouble(const Value& object, std::string_view property);
  bool getFlag(const Value& object, std::string_view property);
  std::string getText(const Value& object, std::string_view property);

  /// Defines a function that records its calls and then runs `body`.
  void stub(const std::string& name, kv::host::NativeBody body = {});
  void note(const std::string& name, const Call& call);
  /// Names of the calls since the last query, separated by blanks.
  std::string takeCalls();
  /// The same with their inputs: "copy(2) throw(KException IncludeCalleeStack true)".
  std::string takeTrace();
  const HostCall& lastCall(std::string_view name) const;

  kv::host::Session session;
  kv::host::Session::Scope scope{session};
  std::vector<HostCall> calls;

 private:
  static const kxArray* raw(const Value& value) { return value.get(); }
  static const kxArray* raw(const kxArray* value) { return value; }
};

/// True if both are the same host object.
bool isSameObject(const Value& a, const Value& b);

}  // namespace bigdata
