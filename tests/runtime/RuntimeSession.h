#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kv/host/session.h"
#include "kv/runtime/runtime.h"
#include "support/TempFolder.h"

namespace kv::runtime::test {

using host::Value;
using kv::test::TempFolder;

/// A session with core and runtime, a folder for files, and functions that record by name.
class RuntimeSession : public ::testing::Test {
 protected:
  RuntimeSession() { load(session); }
  void TearDown() override { EXPECT_EQ(session.verify(), std::vector<std::string>{}); }

  /// A lazy table over the files, one partition per file.
  Value table(std::initializer_list<std::string_view> files) {
    std::vector<std::string> paths;
    for (const std::string_view file : files) {
      paths.push_back(folder.write("f" + std::to_string(written_++) + ".csv", file));
    }
    const Value source =
        host::call("kalvex.io.CsvDatastore", {host::makeStringColumn(paths).get()});
    return host::call("createFromDatastoreBuiltin", {source.get()});
  }

  static Value column(const Value& table, std::string_view name) {
    const Value rows = host::makeChars(":");
    const Value variable = host::makeChars(name);
    const Value content = host::makeLogical(true);
    return host::call("subsrefTabularVar",
                      {rows.get(), variable.get(), content.get(), table.get()});
  }

  static Value element(std::string_view function, const Value& a, const Value& b) {
    const Value handle = host::makeFunctionHandle("kv.element." + std::string(function));
    return host::call("elementfun", {handle.get(), a.get(), b.get()});
  }
  static Value element(std::string_view function, const Value& a, double b) {
    return element(function, a, host::makeDouble(b));
  }

  static Value aggregate(std::string_view function, const Value& a) {
    const Value handle = host::makeFunctionHandle("kv.aggregate." + std::string(function));
    return host::call("aggregatefun", {handle.get(), handle.get(), a.get()});
  }

  static Value filter(const Value& keep, const Value& a) {
    return host::call("filterslices", {keep.get(), a.get()});
  }

  static std::vector<double> gather(const Value& array) {
    const Value value = host::call("gather", {array.get()});
    const auto numbers = [&]<class T>(const T* data) {
      return std::vector<double>(data, data + kxGetNumberOfElements(value.get()));
    };
    if (kxGetClassID(value.get()) == kxINT64_CLASS) {
      return numbers(static_cast<const std::int64_t*>(kxGetData(value.get())));
    }
    return numbers(static_cast<const double*>(kxGetData(value.get())));
  }

  /// A user's operation class, "mine.Doubling", with the factory of its processor.
  static void defineDoubling(host::Session& in) {
    static constexpr char kUserFactory[] = "mine.DoublingFactory";
    host::ClassDefinition factory{
        .name = kUserFactory,
        .superclasses = {"kalvex.bigdata.internal.executor.DataProcessorFactory"}};
    factory.methods.push_back(
        {.name = "feval", .body = [](const host::Call& call) {
           const Value two = host::makeDouble(2);
           call.out(0, host::call("kv.element.times", {call.in(1), two.get()}));
         }});
    host::ClassDefinition operation{.name = "mine.Doubling",
                                    .superclasses = {"kalvex.bigdata.internal.lazyeval.Operation"}};
    operation.constructor = host::MethodDefinition{.body = [](const host::Call& call) {
      const Value one = host::makeDouble(1);
      host::constructSuperclass(call.in(0), "kalvex.bigdata.internal.lazyeval.Operation",
                                {one.get(), one.get()});
    }};
    operation.methods.push_back(
        {.name = "createExecutionTasks", .body = [](const host::Call& call) {
           const Value made = host::call(kUserFactory);
           const Value any = host::makeEmptyDouble();
           const Value one = host::makeDouble(1);
           call.out(0, host::call("kalvex.bigdata.internal.executor.ExecutionTask",
                                  {call.in(1), made.get(), any.get(), one.get()}));
         }});
    in.defineClass(std::make_shared<const host::ClassDefinition>(std::move(factory)));
    in.defineClass(std::make_shared<const host::ClassDefinition>(std::move(operation)));
  }

  static double fact(std::string_view name) {
    const Value facts = host::call("kv.lastEvaluation");
    return kxGetScalar(kxGetField(facts.get(), 0, name));
  }

  /// The error that `action` ends with.
  template <class Action>
  static host::ErrorRecord errorOf(Action&& action) {
    try {
      std::forward<Action>(action)();
    } catch (const Torvane::KException::KExceptionEnvelope& envelope) {
      return host::errorRecord(envelope);
    }
    ADD_FAILURE() << "no error";
    return {};
  }

  TempFolder folder;
  host::Session session;
  host::Session::Scope scope{session};

 private:
  int written_ = 0;
};

}  // namespace kv::runtime::test
