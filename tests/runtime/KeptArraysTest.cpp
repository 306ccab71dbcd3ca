#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>

#include "runtime/RuntimeSession.h"

namespace kv::runtime::test {

namespace {

namespace fs = std::filesystem;

/// Arrays as users save them: over CSV files, with functions and an operation class of their own.
class KeptArrays : public RuntimeSession {
 protected:
  KeptArrays() { defineUsers(session); }

  static void defineUsers(host::Session& in) {
    defineDoubling(in);
    in.defineFunction("user.twice", [](const host::Call& call) {
      call.out(0, host::call("kv.element.plus", {call.in(0), call.in(0)}));
    });
  }

  static Value twice(std::string_view method, const Value& a) {
    const Value handle = host::makeFunctionHandle("user.twice");
    return host::call(kcos::NameRef::of(method), {handle.get(), a.get()});
  }

  std::map<std::string, Value> arrays() {
    const Value t = table({"x,word\n1,a\n2,b\n", "x,word\n3,\n"});
    const Value x = column(t, "x");
    std::map<std::string, Value> made;
    made["filtered"] = aggregate("sum", filter(element("gt", x, 1), x));
    made["words"] = aggregate("count", column(t, "word"));
    made["twice"] = twice("elementfun", x);
    made["doubled"] =
        host::call("applyOperationBuiltin", {host::call("mine.Doubling").get(), x.get()});
    const Value constant = host::makeDouble(21);
    made["answer"] = twice("clientfun", host::call("createFromConstantBuiltin", {constant.get()}));
    return made;
  }

  /// A structure of the arrays.
  static Value recordOf(const std::map<std::string, Value>& arrays) {
    std::vector<std::string_view> names;
    for (const auto& [name, array] : arrays) {
      names.push_back(name);
    }
    Value record = matrix::from_kalvex(kxCreateStructMatrix(1, 1, names));
    for (const auto& [name, array] : arrays) {
      kxSetField(record.get(), 0, name, matrix::sharedCopy(array.get()).release());
    }
    return record;
  }

  /// The plan without the paths of its files, which differ from run to run, as their lengths do.
  static std::string explain(const kxArray* array) {
    const std::string plan = host::toText(host::call("kv.explain", {array}).get());
    const std::string named = std::regex_replace(plan, std::regex("/\\S*/f\\d+.csv"), "a file");
    return std::regex_replace(named, std::regex(" +"), " ");
  }

  /// Compares a kept file with the same arrays made today. Those of another release are invalid.
  void expectTodaysArrays(const fs::path& path) {
    SCOPED_TRACE(path);
    const bool isOfToday = path.stem() == KV_VERSION;
    const std::map<std::string, Value> made = arrays();
    host::Session opening;
    load(opening);
    defineUsers(opening);
    const host::Session::Scope inside(opening);
    const Value kept = opening.load(path, true);
    EXPECT_EQ(opening.warnings().size(), isOfToday ? 0 : made.size());
    for (const auto& [name, array] : made) {
      const kxArray* same = kxGetField(kept.get(), 0, name);
      ASSERT_NE(same, nullptr) << name;
      EXPECT_EQ(host::toLogical(host::getProperty(same, "IsValid").get()), isOfToday);
      if (isOfToday) {
        const host::Session::Scope outside(session);
        const std::string today = explain(array.get());
        const host::Session::Scope again(opening);
        EXPECT_EQ(explain(same), today) << name;
      }
    }
    if (isOfToday) {
      const kxArray* answer = kxGetField(kept.get(), 0, "answer");
      EXPECT_EQ(kxGetScalar(host::call("gather", {answer}).get()), 42);
    }
  }
};

/// Every release leaves a file here, written with KV_WRITE_KEPT=1, and no release may ever fail to
/// load it.
TEST_F(KeptArrays, OfEveryReleaseCanBeLoaded) {
  const fs::path current = fs::path(KV_KEPT) / (std::string(KV_VERSION) + ".kv");
  if (std::getenv("KV_WRITE_KEPT") != nullptr) {
    session.save(current, recordOf(arrays()).get());
  }
  EXPECT_TRUE(fs::exists(current)) << "KV_WRITE_KEPT=1 writes it, once for a release";
  std::size_t files = 0;
  for (const auto& entry : fs::directory_iterator(KV_KEPT)) {
    expectTodaysArrays(entry.path());
    ++files;
  }
  std::printf("kept: %zu files with users' arrays of releases up to %s loaded\n", files,
              KV_VERSION);
}

}  // namespace
}  // namespace kv::runtime::test
