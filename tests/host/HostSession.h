#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kv/host/session.h"

namespace kv::test {

using host::Arity;
using host::Call;
using host::ClassCompletion;
using host::ClassDefinition;
using host::ErrorRecord;
using host::MemberAccess;
using host::MethodDefinition;
using host::NativeBody;
using host::PropertyDefinition;
using host::Value;

/// The error that `action` ends with. Fails the test if there is none.
ErrorRecord errorOf(const std::function<void()>& action);

/// Its id and arguments, separated by " | "; "no error" if there is none.
std::string failure(const std::function<void()>& action);

/// The bytes of a file, read as a load reads them, whatever they are.
std::string bytesOf(const std::string& path);

/// A body that returns one text.
NativeBody says(std::string text);

/// A body that calls `name` by name with one output and its own inputs.
NativeBody forwardsTo(std::string name);

/// A session with nothing in it but what the host itself has. After each test the heap is verified.
class HostSession : public ::testing::Test {
 protected:
  void TearDown() override;

  template <class... Inputs>
  Value call(std::string_view name, const Inputs&... inputs) {
    const std::vector<const kxArray*> raw{rawOf(inputs)...};
    return std::move(session.call(name, 1, raw).front());
  }
  template <class... Inputs>
  Value callAs(std::string_view asClass, std::string_view name, const Inputs&... inputs) {
    const std::vector<const kxArray*> raw{rawOf(inputs)...};
    return std::move(session.call(name, 1, raw, asClass).front());
  }
  template <class... Inputs>
  Value invoke(const Value& object, std::string_view method, const Inputs&... inputs) {
    const std::vector<const kxArray*> raw{rawOf(inputs)...};
    return std::move(session.invoke(object.get(), method, 1, raw).front());
  }
  Value get(const Value& object, std::string_view property, std::string_view asClass = {}) {
    return session.get(object.get(), property, asClass);
  }
  void set(const Value& object, std::string_view property, const Value& value,
           std::string_view asClass = {}) {
    session.set(object.get(), property, value.get(), asClass);
  }
  /// The one output of a call, as a text.
  template <class... Inputs>
  std::string said(std::string_view name, const Inputs&... inputs) {
    return host::toText(call(name, inputs...).get());
  }

  void define(ClassDefinition definition) {
    session.defineClass(std::make_shared<const ClassDefinition>(std::move(definition)));
  }
  void complete(ClassCompletion completion) {
    session.completeClass(std::make_shared<const ClassCompletion>(std::move(completion)));
  }

  host::Session session;
  host::Session::Scope scope{session};

 private:
  static const kxArray* rawOf(const Value& value) { return value.get(); }
  static const kxArray* rawOf(const kxArray* value) { return value; }
};

}  // namespace kv::test
