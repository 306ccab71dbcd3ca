#include <arrow/memory_pool.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "classes/sessionValues.h"
#include "foundation/i18n.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/Aggregates.h"
#include "kv/runtime/ElementFunctions.h"
#include "kv/runtime/functionNames.h"
#include "kv/runtime/timeValues.h"
#include "runtime/RuntimeSession.h"
#include "support/Worlds.h"

// Whether a value was gathered before changes no bit of any result.

namespace kv::runtime::test {

namespace {

/// Class, dimensions and elements of a host value.
std::string bytesOf(const kxArray* value) {
  std::string bytes = fmt::format("{} ", kxGetClassName(value));
  value = shapedElements(value);
  bytes += fmt::format("{} ", kxGetM(value));
  if (Torvane::String::isString(value)) {
    for (std::size_t i = 0; i < kxGetNumberOfElements(value); ++i) {
      const auto text = Torvane::String::getString(value, i);
      bytes += text ? fmt::format("[{}]", fl::i18n::to_string(*text)) : "[missing]";
    }
    return bytes;
  }
  const auto size = kxGetNumberOfElements(value) * kxGetElementSize(kxGetClassID(value));
  return bytes.append(static_cast<const char*>(kxGetData(value)), size);
}

/// Two columns of each type over three partitions: one of several chunks, one empty, one small. The
/// first column of each type has missing values; those of integers and logicals, except for uint64,
/// are in few rows of the first partition.
class Gathered : public RuntimeSession {
 protected:
  using Columns = std::map<std::string, Value>;
  using Questions = std::vector<std::pair<std::string, Value>>;

  static constexpr int kRows = 40'000;

  void SetUp() override {
    std::string header = "n";
    for (const ElementType type : allElementTypes()) {
      const std::string name(elementTypeName(type));
      header += fmt::format(",{0}1,{0}2", name);
      names_.insert(names_.end(), {name + "1", name + "2"});
      types_.insert(types_.end(), {name, name});
    }
    paths_ = {folder.write("a.csv", header + "\n" + rows(0, kRows)),
              folder.write("b.csv", header + "\n"),
              folder.write("c.csv", header + "\n" + rows(kRows, kRows + 700))};
  }

  /// All columns, newly recorded, of the rows with n in a range that leaves some chunks empty.
  Columns columns(double from = 0, double to = kRows * 2) {
    const Value source =
        host::call("kalvex.io.CsvDatastore",
                   {host::makeStringColumn(paths_).get(), host::makeStringColumn(names_).get(),
                    host::makeStringColumn(types_).get()});
    const Value t = host::call("createFromDatastoreBuiltin", {source.get()});
    const Value n = column(t, "n");
    const Value keep = element("and", element("ge", n, from), element("lt", n, to));
    Columns made;
    for (const std::string& name : names_) {
      const Value rows = name.ends_with("1") ? withMissing(t, name) : column(t, name);
      made[name] = from > 0 || to < kRows ? filter(keep, rows) : matrix::sharedCopy(rows.get());
    }
    return made;
  }

  /// A negative uint64 wraps beyond 2^53, which a value with missing elements can't hold.
  static Value withMissing(const Value& table, const std::string& name) {
    const Value rows = column(table, name);
    if (name.find("int") == std::string::npos && name != "logical1") {
      return matrix::sharedCopy(rows.get());
    }
    const Value n = column(table, "n");
    const Value none = aggregate("min", filter(element("lt", n, -1), rows));
    const bool isWhole = name == "uint641";
    const Value keep = element("or", element("ge", n, isWhole ? 0 : 100), element("ne", rows, 0));
    const Value handle = host::makeFunctionHandle("kv.element.where");
    return host::call("elementfun", {handle.get(), keep.get(), rows.get(), none.get()});
  }

  static void gatherAll(const Columns& columns) {
    std::vector<const kxArray*> arrays;
    for (const auto& [name, array] : columns) {
      arrays.push_back(array.get());
    }
    host::callMany("gather", static_cast<int>(arrays.size()), arrays);
  }

  /// Every element function and aggregate of every type for which it is defined; under stress,
  /// where each object costs as much as all that live, a few.
  static Questions questions(const Columns& columns) {
    Questions asked;
    std::size_t number = 0;
    const auto isLeftOut = [&] { return kv::test::isStressed() && number++ % 61 != 0; };
    for (const ElementType type : allElementTypes()) {
      const std::string name(elementTypeName(type));
      const kxArray* x = columns.at(name + "1").get();
      const kxArray* y = columns.at(name + "2").get();
      for (const ElementFunction& function : elementFunctions()) {
        if (isLeftOut()) {
          continue;
        }
        std::vector<const kxArray*> inputs{x, y};
        std::vector<OperandType> types{{type}, {type}};
        if (function.arity == 3) {
          inputs.insert(inputs.begin(), columns.at("logical1").get());
          types.insert(types.begin(), {ElementType::Logical});
        }
        inputs.resize(function.arity);
        types.resize(function.arity);
        ask(asked, function.name, name, [&] {
          resolve(function, types);
          return elementOf(elementFunctionName(function.name), inputs);
        });
      }
      for (const AggregateFunction& function : aggregateFunctions()) {
        for (const MissingRule rule : {MissingRule::Skip, MissingRule::Propagate}) {
          if (isLeftOut()) {
            continue;
          }
          ask(asked, function.name, name, [&] {
            aggregateType(function.kind, type);
            const Value handle =
                host::makeFunctionHandle(aggregateFunctionName(function.name, {rule}));
            return host::call("aggregatefun", {handle.get(), handle.get(), x});
          });
        }
      }
    }
    for (const char* name : {"double1", "int81", "uint641"}) {
      addUsersFunctions(asked, columns.at(name).get());
    }
    return asked;
  }

  static std::vector<std::string> together(const Questions& asked) {
    std::vector<const kxArray*> arrays;
    for (const auto& [name, array] : asked) {
      arrays.push_back(array.get());
    }
    std::vector<std::string> answers;
    for (const Value& value : host::callMany("gather", static_cast<int>(arrays.size()), arrays)) {
      answers.push_back(bytesOf(value.get()));
    }
    return answers;
  }

  /// Every `step`-th question alone; the others stay empty.
  static std::vector<std::string> separately(const Questions& asked, std::size_t step) {
    std::vector<std::string> answers(asked.size());
    for (std::size_t i = 0; i < asked.size(); i += step) {
      answers[i] = bytesOf(host::call("gather", {asked[i].second.get()}).get());
    }
    return answers;
  }

  static void expectSame(const Questions& asked, const std::vector<std::string>& expected,
                         const std::vector<std::string>& answers, const char* order) {
    for (std::size_t i = 0; i < asked.size(); ++i) {
      EXPECT_TRUE(answers[i].empty() || answers[i] == expected[i]) << asked[i].first << order;
    }
  }

 private:
  static std::string rows(int first, int last) {
    std::string rows;
    for (int n = first; n < last; ++n) {
      rows += std::to_string(n);
      for (const ElementType type : allElementTypes()) {
        const int a = n % 1000 * 7919 % 10;
        const int b = n % 1000 * 104'729 % 7;
        if (type == ElementType::String) {
          rows += fmt::format(",{},{}", a == 0 ? "" : std::string(1, static_cast<char>('a' + a)),
                              static_cast<char>('a' + b));
        } else if (type == ElementType::DateTime) {
          rows +=
              fmt::format(",{},2013-06-0{}", a == 0 ? "" : fmt::format("2013-06-0{}", a), b + 1);
        } else if (type == ElementType::Duration) {
          rows += fmt::format(",{},-PT{}H", a == 0 ? "" : fmt::format("PT{}S", a), b);
        } else if (type == ElementType::Logical) {
          rows += fmt::format(",{},{}", a % 2, b % 2);
        } else if (type == ElementType::Double || type == ElementType::Single) {
          rows +=
              fmt::format(",{},{}", a == 0 ? "" : fmt::format("{}e{}", a * 0.1, b - 3), n * 0.3);
        } else {
          rows += fmt::format(",{},{}", a, b);
        }
      }
      rows += '\n';
    }
    return rows;
  }

  template <class Make>
  static void ask(Questions& asked, std::string_view function, const std::string& type,
                  Make&& make) {
    try {
      asked.emplace_back(fmt::format("{} of {}", function, type), make());
    } catch (const errors::StepError&) {
      // It isn't defined for this type.
    }
  }

  static Value elementOf(const std::string& name, const std::vector<const kxArray*>& inputs) {
    const Value handle = host::makeFunctionHandle(name);
    std::vector<const kxArray*> all{handle.get()};
    all.insert(all.end(), inputs.begin(), inputs.end());
    return host::call("elementfun", all);
  }

  /// Functions whose results depend on the chunks with which they are called, and on their class.
  static void addUsersFunctions(Questions& asked, const kxArray* x) {
    const Value sizes = host::makeFunctionHandle("sizes", [](const host::Call& call) {
      const bool isDouble = kxGetClassID(call.in(0)) == kxDOUBLE_CLASS;
      const double size = static_cast<double>(kxGetM(call.in(0))) + (isDouble ? 0.5 : 0);
      const Value same = host::call("kv.element.eq", {call.in(0), call.in(0)});
      call.out(0, host::call("kv.element.where", {same.get(), host::makeDouble(size).get(),
                                                  host::makeDouble(-size).get()}));
    });
    const Value one = host::makeFunctionHandle(
        "one", [](const host::Call& call) { call.out(0, host::makeDouble(1)); });
    const Value sum = host::makeFunctionHandle("kv.aggregate.sum");
    asked.emplace_back("sizes", host::call("elementfun", {sizes.get(), x}));
    asked.emplace_back("number of frames", host::call("aggregatefun", {one.get(), sum.get(), x}));
  }

  std::vector<std::string> names_;
  std::vector<std::string> types_;
  std::vector<std::string> paths_;
};

TEST_F(Gathered, NothingChangesABitOfAnyAnswer) {
  for (const auto& [from, to] : {std::pair{0., 2. * kRows}, {30., 90.}, {-2., -1.}}) {
    SCOPED_TRACE(fmt::format("n from {} to {}", from, to));
    const Questions pending = questions(columns(from, to));
    ASSERT_GT(pending.size(), kv::test::isStressed() ? 4U : 400U);
    const std::vector<std::string> expected = together(pending);
    if (to > kRows) {
      double frames = 0;
      std::memcpy(&frames, expected.back().data() + expected.back().size() - 8, 8);
      EXPECT_EQ(frames, 3) << "two of the first file, one of the last";
    }
    expectSame(pending, expected, separately(questions(columns(from, to)), 37), ", separately");
    const Columns known = columns(from, to);
    gatherAll(known);
    expectSame(pending, expected, together(questions(known)), ", gathered, together");
    EXPECT_EQ(fact("passes"), 0);
    expectSame(pending, expected, separately(questions(known), 1), ", gathered, separately");
  }
}

TEST_F(Gathered, AllMemoryOfColumnsComesFromTheLedger) {
  const arrow::MemoryPool& pool = *arrow::default_memory_pool();
  const MemoryLedger& ledger = *runtimeState().ledger;
  const Columns all = columns(30, 90);
  const std::int64_t other = pool.total_bytes_allocated() - ledger.total_bytes_allocated();
  together(questions(all));
  gatherAll(all);
  together(questions(all));
  EXPECT_EQ(pool.total_bytes_allocated() - ledger.total_bytes_allocated(), other);
  EXPECT_GT(ledger.total_bytes_allocated(), 0);
}

}  // namespace
}  // namespace kv::runtime::test
