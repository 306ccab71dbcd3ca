#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "kv/runtime/runtime.h"
#include "runtime/RuntimeSession.h"

// Operations, compared with a plain reference: a row of the table records an operation on arrays of
// random rows in several partitions, some of them empty, and computes the same from vectors.

namespace kv::runtime::test {

namespace {

using Rows = std::vector<double>;
using Parts = std::vector<Rows>;  ///< the rows of each partition

constexpr int kFrame = 32'768;

double sumOf(const Rows& rows) { return std::accumulate(rows.begin(), rows.end(), 0.0); }

/// The rows in frames of `size` rows.
std::vector<Rows> framesOf(const Rows& rows, std::size_t size) {
  std::vector<Rows> frames;
  for (std::size_t first = 0; first < rows.size(); first += size) {
    const std::size_t last = std::min(rows.size(), first + size);
    frames.emplace_back(rows.begin() + static_cast<std::ptrdiff_t>(first),
                        rows.begin() + static_cast<std::ptrdiff_t>(last));
  }
  return frames;
}

Rows where(const Rows& rows, const Rows& keep, double above) {
  Rows kept;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (keep[i] > above) {
      kept.push_back(rows[i]);
    }
  }
  return kept;
}

/// Some rows of each partition.
Parts eachPart(const Parts& a, const Parts& b,
               const std::function<Rows(const Rows&, const Rows&)>& f) {
  Parts results;
  for (std::size_t part = 0; part < a.size(); ++part) {
    results.push_back(f(a[part], b[part]));
  }
  return results;
}

/// For each frame of a partition, how many rows it has and their sum.
Parts totals(const Parts& parts, std::size_t size) {
  return eachPart(parts, parts, [size](const Rows& rows, const Rows&) {
    Rows all;
    for (const Rows& frame : framesOf(rows, size)) {
      all.insert(all.end(), {static_cast<double>(frame.size()), sumOf(frame)});
    }
    return all;
  });
}

Rows joined(const Parts& parts) {
  Rows all;
  for (const Rows& rows : parts) {
    all.insert(all.end(), rows.begin(), rows.end());
  }
  return all;
}

Rows plus(Rows a, const Rows& b) {
  std::ranges::transform(a, b, a.begin(), std::plus());
  return a;
}

Rows isAbove(Rows a, const Rows&) {
  std::ranges::transform(a, a.begin(), [](double value) { return value > 2 ? 1 : 0; });
  return a;
}

class Reference : public RuntimeSession {
 protected:
  Reference() {
    std::mt19937 random(14);
    std::vector<std::string> files;
    for (const int rows : {40'000, 0, 3, 1, 0, 900}) {
      std::string text = "x,y\n";
      xs.emplace_back();
      ys.emplace_back();
      for (int row = 0; row < rows; ++row) {
        xs.back().push_back(static_cast<double>(random() % 11) - 5);
        ys.back().push_back(static_cast<double>(random() % 100));
        text += std::to_string(static_cast<int>(xs.back().back())) + "," +
                std::to_string(static_cast<int>(ys.back().back())) + "\n";
      }
      files.push_back(std::move(text));
    }
    t = table({files[0], files[1], files[2], files[3], files[4], files[5]});
    open();
  }

  /// Arrays that nothing was gathered of.
  void open() {
    x = column(t, "x");
    y = column(t, "y");
  }

  static Rows numbersOf(const kxArray* value) {
    const auto* data = static_cast<const double*>(kxGetData(value));
    return {data, data + kxGetNumberOfElements(value)};
  }

  static Value columnOf(const Rows& rows) {
    Value value = matrix::from_kalvex(kxCreateDoubleMatrix(rows.size(), 1, 0));
    std::ranges::copy(rows, static_cast<double*>(kxGetMutableData(value.get())));
    return value;
  }

  using Body = std::function<std::vector<Rows>(const std::vector<Rows>& inputs)>;
  static Value function(Body body) {
    return host::makeFunctionHandle("mine", [body = std::move(body)](const host::Call& call) {
      std::vector<Rows> inputs;
      for (int i = 0; i < call.nrhs; ++i) {
        inputs.push_back(numbersOf(call.in(i)));
      }
      const std::vector<Rows> outputs = body(inputs);
      for (std::size_t i = 0; i < outputs.size(); ++i) {
        call.out(static_cast<int>(i), columnOf(outputs[i]));
      }
    });
  }

  /// What a function of partitions is given: the fields in order, flags as 1.
  struct Info {
    Rows all;
    bool isLast = false;  ///< of the first input
  };
  struct Returned {
    bool isFinished = false;
    std::vector<Rows> outputs;
    std::vector<Rows> unused;  ///< returned if there are any
  };
  static Value partitionFunction(
      std::function<Returned(const Info&, const std::vector<Rows>&)> body) {
    return host::makeFunctionHandle("mine", [body = std::move(body)](const host::Call& call) {
      Info info;
      for (const char* field : {"PartitionId", "NumPartitions", "RelativeIndexInPartition"}) {
        const Rows numbers = numbersOf(kxGetField(call.in(0), 0, field));
        info.all.insert(info.all.end(), numbers.begin(), numbers.end());
      }
      const kxArray* last = kxGetField(call.in(0), 0, "IsLastChunk");
      info.isLast = kxGetLogicals(last)[0];
      for (std::size_t i = 0; i < kxGetNumberOfElements(last); ++i) {
        info.all.push_back(kxGetLogicals(last)[i] ? 1 : 0);
      }
      std::vector<Rows> inputs;
      for (int i = 1; i < call.nrhs; ++i) {
        inputs.push_back(numbersOf(call.in(i)));
      }
      const Returned returned = body(info, inputs);
      call.out(0, host::makeLogical(returned.isFinished));
      int next = 1;
      if (!returned.unused.empty()) {
        std::vector<Value> cell;
        for (const Rows& rows : returned.unused) {
          cell.push_back(columnOf(rows));
        }
        call.out(next++, host::makeCell(std::move(cell)));
      }
      for (const Rows& output : returned.outputs) {
        call.out(next++, columnOf(output));
      }
    });
  }

  /// How many rows a chunk has and their sum, and what is added to it.
  static Value totalsFunction() {
    return function([](const std::vector<Rows>& in) {
      const double more = in.size() > 1 && !in[1].empty() ? in[1].front() : 0;
      return std::vector<Rows>{{static_cast<double>(in[0].size()), sumOf(in[0]) + more}};
    });
  }

  /// The rows of both inputs for which the first is above 2.
  std::vector<Value> largeOnes() const {
    const Value both = function([](const std::vector<Rows>& in) {
      return std::vector<Rows>{where(in[0], in[0], 2), where(in[1], in[0], 2)};
    });
    return host::callMany("chunkfun", 2, std::vector<const kxArray*>{both.get(), x.get(), y.get()});
  }

  static Value sameFunction() {
    return function([](const std::vector<Rows>& in) { return std::vector<Rows>{in[0]}; });
  }

  /// A comparison as numbers.
  static Value compared(const std::string& name, const Value& a, double operand, bool isFirst) {
    const Value handle = host::makeFunctionHandle("kv.element." + name);
    return element("plus",
                   host::call("smallTallComparison", {handle.get(), host::makeDouble(operand).get(),
                                                      host::makeLogical(isFirst).get(), a.get()}),
                   0);
  }

  /// The rows of x as one value.
  Value whole() const { return host::call("clientfun", {sameFunction().get(), x.get()}); }

  static Value chunks(const Value& handle, const Value& a) {
    return host::call("chunkfun", {handle.get(), a.get()});
  }
  static Value fixed(double rows, const Value& a) {
    return host::call("fixedchunkfun",
                      {host::makeDouble(rows).get(), totalsFunction().get(), a.get()});
  }
  static Value resized(const Value& a, double rows) {
    return host::call("resizechunks", {a.get(), host::makeDouble(rows).get()});
  }

  /// An operation on the arrays of the fixture, and what it gives.
  struct Case {
    const char* name;
    std::function<Value()> record;
    Rows expected;
  };

  /// Computes each case for any threads, and with arrays that were gathered before and that
  /// weren't.
  void expectEqual(const std::vector<Case>& cases) {
    for (const int threads : {1, 2, 8}) {
      setThreads(threads);
      for (const bool first : {false, true}) {
        gathersFirst_ = first;
        for (const Case& each : cases) {
          SCOPED_TRACE(std::string(each.name) + (first ? ", gathered first, " : ", ") +
                       std::to_string(threads) + " threads");
          open();
          EXPECT_EQ(gather(each.record()), each.expected);
        }
      }
    }
  }

  Value gatheredFirst(Value array) const {
    if (gathersFirst_) {
      gather(array);
    }
    return array;
  }

  /// The rows for which x is above 2.
  Parts large(const Parts& of) const {
    return eachPart(of, xs, [](const Rows& a, const Rows& k) { return where(a, k, 2); });
  }

  Parts xs;
  Parts ys;
  Value t;
  Value x;
  Value y;

 private:
  bool gathersFirst_ = false;
};

TEST_F(Reference, ChunksAreTheSameForAnyThreads) {
  const Parts largeY = large(ys);
  expectEqual({

      {"frames", [&] { return chunks(totalsFunction(), x); }, joined(totals(xs, kFrame))},
      {"chunks that were resized", [&] { return chunks(totalsFunction(), resized(x, 7)); },
       joined(totals(xs, 7))},
      {"chunks of what a filter leaves",
       [&] { return chunks(totalsFunction(), resized(filter(element("gt", x, 2), y), 7)); },
       joined(totals(largeY, 7))},
      {"inputs that are cut differently",
       [&] { return chunks(totalsFunction(), element("plus", x, resized(x, 1'000))); },
       joined(totals(eachPart(xs, xs, plus), 1'000))},
      {"chunks of a fixed size", [&] { return fixed(5, x); }, joined(totals(xs, 5))},
      {"of one row", [&] { return fixed(1, filter(element("gt", x, 2), y)); },
       joined(totals(largeY, 1))},
      {"whatever was asked for before", [&] { return fixed(11, resized(x, 3)); },
       joined(totals(xs, 11))},
      {"chunks of chunks", [&] { return fixed(3, fixed(5, x)); }, joined(totals(totals(xs, 5), 3))},
      {"no rows at all",
       [&] { return chunks(totalsFunction(), filter(element("gt", x, 100), y)); },
       {0, 0}},
  });
}

TEST_F(Reference, NewRowsGoTogetherWhateverWasGatheredBefore) {
  const Parts largeX = large(xs);
  const Parts largeY = large(ys);
  expectEqual({
      {"new rows side by side",
       [&] {
         const auto outputs = largeOnes();
         gatheredFirst(matrix::sharedCopy(outputs[1].get()));
         return element("plus", element("times", outputs[1], 1), outputs[0]);
       },
       joined(eachPart(largeX, largeY, plus))},
      {"new rows, filtered",
       [&] {
         const auto outputs = largeOnes();
         const Value keep = gatheredFirst(element("gt", outputs[1], 50));
         const Value first = gatheredFirst(matrix::sharedCopy(outputs[0].get()));
         return element("plus", filter(keep, first), filter(keep, outputs[1]));
       },
       joined(eachPart(
           largeX, largeY,
           [](const Rows& a, const Rows& k) { return plus(where(a, k, 50), where(k, k, 50)); }))},
      {"functions of new rows",
       [&] {
         const auto outputs = largeOnes();
         const Value twice =
             element("times", gatheredFirst(matrix::sharedCopy(outputs[0].get())), 2);
         return element("minus", resized(twice, 9), outputs[0]);
       },
       joined(largeX)},
      {"a reduction of new rows",
       [&] { return aggregate("sum", largeOnes()[1]); },
       {sumOf(joined(largeY))}},
      {"a value for all chunks",
       [&] {
         const Value total = aggregate("sum", y);
         return host::call("fixedchunkfun", {host::makeDouble(30'000).get(), totalsFunction().get(),
                                             x.get(), total.get()});
       },
       [&] {
         Rows rows = joined(totals(xs, 30'000));
         for (std::size_t i = 1; i < rows.size(); i += 2) {
           rows[i] += sumOf(joined(ys));
         }
         return rows;
       }()},
  });
}

TEST_F(Reference, RowsThatAreKeptOrFilteredByAValue) {
  expectEqual({
      {"a check that passes rows on",
       [&] {
         return host::call("assertAdaptorCorrect", {sameFunction().get(), resized(x, 7).get()});
       },
       joined(xs)},
      {"a comparison with an operand", [&] { return compared("gt", x, 2, false); },
       joined(eachPart(xs, xs, isAbove))},
      {"with an operand before it", [&] { return compared("lt", x, 2, true); },
       joined(eachPart(xs, xs, isAbove))},
      {"all rows or none",
       [&] {
         const Value all = filter(element("gt", aggregate("max", x), 0), y);
         const Value nothing = filter(host::makeLogical(false), x);
         return host::call("ternaryfun", {element("lt", aggregate("count", nothing), 1).get(),
                                          all.get(), nothing.get()});
       },
       joined(ys)},
      {"several columns",
       [&] {
         const Value names = host::makeStringColumn(std::vector<std::string>{"y", "x"});
         const Value rows = host::makeChars(":");
         const Value content = host::makeLogical(false);
         return column(
             host::call("subsrefTabularVar", {rows.get(), names.get(), content.get(), t.get()}),
             "x");
       },
       joined(xs)},
  });
}

TEST_F(Reference, FunctionsOfPartitionsAreCalledUntilTheyAreFinished) {
  const Parts places = eachPart(xs, xs, [this](const Rows& rows, const Rows&) {
    const auto id = static_cast<double>(&rows - xs.data() + 1);
    Rows all;
    const auto add = [&](double first, double size, bool isLast) {
      all.insert(all.end(), {id, 6, first, isLast ? 1.0 : 0.0, size});
    };
    for (std::size_t first = 0; first < rows.size(); first += 700) {
      const std::size_t size = std::min<std::size_t>(700, rows.size() - first);
      add(static_cast<double>(first + 1), static_cast<double>(size), first + size == rows.size());
    }
    add(static_cast<double>(rows.size() + 1), 0, true);
    return all;
  });
  const Value report = partitionFunction([](const Info& info, const std::vector<Rows>& in) {
    Rows row = info.all;
    row.push_back(static_cast<double>(in[0].size()));
    return Returned{info.isLast && in[0].empty(), {row}, {}};
  });
  const Value firstTwo = partitionFunction([](const Info&, const std::vector<Rows>& in) {
    return Returned{
        true, {Rows(in[0].begin(), in[0].begin() + std::min<long>(2, std::ssize(in[0])))}, {}};
  });
  const auto twoOf = [](const Rows& a, const Rows&) {
    return Rows(a.begin(), a.begin() + std::min<long>(2, std::ssize(a)));
  };
  expectEqual({
      {"where rows are",
       [&] {
         return host::call("partitionfun", {report.get(), resized(x, 700).get()});
       },
       joined(places)},
      {"the head of each partition",
       [&] {
         return host::call("partitionheadfun", {firstTwo.get(), y.get()});
       },
       joined(eachPart(ys, ys, twoOf))},
      {"and its sum",
       [&] {
         return aggregate("sum", host::call("partitionheadfun", {firstTwo.get(), y.get()}));
       },
       {sumOf(joined(eachPart(ys, ys, twoOf)))}},
  });
}

/// Merges two sorted inputs of each partition, which have different numbers of rows.
TEST_F(Reference, InputsOfAFunctionOfPartitionsMayHaveDifferentRows) {
  const auto countedUp = [](const Rows& rows) {
    Rows counted(rows.size());
    std::iota(counted.begin(), counted.end(), 0);
    return counted;
  };
  const Value up = partitionFunction([](const Info& info, const std::vector<Rows>& in) {
    Rows counted(in[0].size());
    std::iota(counted.begin(), counted.end(), info.all[2] - 1);
    return Returned{info.isLast, {counted}, {}};
  });
  const Value merge = partitionFunction([](const Info& info, const std::vector<Rows>& in) {
    const bool isLast = info.isLast && info.all.back() == 1;
    Rows all;
    auto a = in[0].begin();
    auto b = in[1].begin();
    while ((a != in[0].end() && b != in[1].end()) ||
           (isLast && (a != in[0].end() || b != in[1].end()))) {
      const bool isA = b == in[1].end() || (a != in[0].end() && *a <= *b);
      all.push_back(isA ? *a++ : *b++);
    }
    return Returned{isLast, {all}, {Rows(a, in[0].end()), Rows(b, in[1].end())}};
  });
  const Value stuck = partitionFunction([](const Info&, const std::vector<Rows>& in) {
    return Returned{false, {Rows()}, {in[0], in[1]}};
  });
  const auto general = [&](const Value& f) {
    const Value all = host::call("partitionfun", {up.get(), x.get()});
    const Value few = host::call("partitionfun", {up.get(), filter(element("gt", x, 2), x).get()});
    return host::call("generalpartitionfun", {f.get(), resized(all, 900).get(), few.get()});
  };
  expectEqual({{"a merge", [&] { return general(merge); },
                joined(eachPart(xs, large(xs), [&](const Rows& all, const Rows& few) {
                  Rows merged;
                  std::ranges::merge(countedUp(all), countedUp(few), std::back_inserter(merged));
                  return merged;
                }))}});
  EXPECT_EQ(errorOf([&] { gather(general(stuck)); }).identifier, "KALVEX:array:NothingConsumed");
}

TEST_F(Reference, TheFirstRowsComeFromAllPartitionsInOrder) {
  const Rows all = joined(ys);
  const Rows few = joined(large(ys));
  const auto firstOf = [](const Rows& rows, std::ptrdiff_t count) {
    return Rows(rows.begin(), rows.begin() + std::min(count, std::ssize(rows)));
  };
  const auto head = [](const Value& array, double rows) {
    const Value one = host::makeDouble(1);
    const Value count = host::makeDouble(rows);
    const Value operation =
        host::call("kalvex.bigdata.internal.lazyeval.HeadOperation", {one.get(), count.get()});
    return host::call("applyOperationBuiltin", {operation.get(), array.get()});
  };
  const auto above2 = [this] { return filter(element("gt", x, 2), y); };
  expectEqual({
      {"of one partition", [&] { return head(y, 5); }, firstOf(all, 5)},
      {"of several", [&] { return head(y, 40'002); }, firstOf(all, 40'002)},
      {"all", [&] { return head(above2(), 1e6); }, few},
      {"none", [&] { return head(y, 0); }, {}},
      {"of new rows", [&] { return head(fixed(5, x), 7); }, firstOf(joined(totals(xs, 5)), 7)},
      {"of those", [&] { return head(head(y, 9), 3); }, firstOf(all, 3)},
  });
  open();
  gather(head(element("plus", y, 0), 5));
  EXPECT_LE(fact("rows"), 40'000) << "what isn't needed isn't read";
}

TEST_F(Reference, ChunksAreHandedToTheClientUntilItHasEnough) {
  for (const int threads : {1, 2, 8}) {
    setThreads(threads);
    for (const bool isOrdered : {true, false}) {
      Rows seen;
      const Value take = host::makeFunctionHandle("take", [&](const host::Call& call) {
        const Rows rows = numbersOf(call.in(1));
        seen.insert(seen.end(), rows.begin(), rows.end());
      });
      const auto each = [&](const Value& f) {
        return kxGetLogicals(host::call("clientforeach", {f.get(), resized(y, 900).get(),
                                                          host::makeChars("Ordered").get(),
                                                          host::makeLogical(isOrdered).get()})
                                 .get())[0];
      };
      EXPECT_FALSE(each(take));
      Rows all = joined(ys);
      if (!isOrdered) {
        std::ranges::sort(all);
        std::ranges::sort(seen);
      }
      EXPECT_EQ(seen, all);
      int calls = 0;
      EXPECT_TRUE(each(host::makeFunctionHandle(
          "stop", [&](const host::Call& call) { call.out(0, host::makeLogical(++calls == 3)); })));
      EXPECT_GE(calls, 3);
      EXPECT_TRUE(calls == 3 || !isOrdered);
    }
  }
}

TEST_F(Reference, RowsThatAFunctionMakesAreItsOwn) {
  const auto outputs = largeOnes();
  const auto others = largeOnes();
  EXPECT_EQ(gather(outputs[0]), gather(others[0]));
  for (const Value& other : {matrix::sharedCopy(x.get()), matrix::sharedCopy(others[1].get())}) {
    for (const Value& mine :
         {matrix::sharedCopy(outputs[0].get()), matrix::sharedCopy(outputs[1].get())}) {
      const auto error = errorOf([&] { gather(element("plus", mine, other)); });
      EXPECT_EQ(error.identifier, "KALVEX:array:RowsDiffer");
    }
  }
  const Value uneven = function([](const std::vector<Rows>& in) {
    return std::vector<Rows>{in[0], {1}};
  });
  const auto two =
      host::callMany("chunkfun", 2, std::vector<const kxArray*>{uneven.get(), x.get()});
  const auto error = errorOf([&] { gather(two[0]); });
  EXPECT_EQ(error.identifier, "KALVEX:array:OutputRows");
  EXPECT_THAT(error.arguments, testing::ElementsAre("mine", "32768", "1"));
  EXPECT_THAT(error.message, testing::HasSubstr("partition 1, rows 1 to 32768"));
  EXPECT_EQ(errorOf([&] { fixed(0, x); }).identifier, "KALVEX:array:ChunkRows");
}

TEST_F(Reference, FunctionsGetValuesAsTheirOptionsSay) {
  const Value list = columnOf({-5, 4, 5});
  const Value isListed = function([](const std::vector<Rows>& in) {
    Rows found;
    for (const double value : in[0]) {
      found.push_back(std::ranges::find(in[1], value) != in[1].end() ? 1 : 0);
    }
    return std::vector<Rows>{found};
  });
  const auto operandOf = [&](const Value& array) {
    return host::call("smallTallComparison",
                      {isListed.get(), list.get(), host::makeLogical(false).get(), array.get()});
  };
  const Rows all = joined(xs);
  EXPECT_EQ(gather(aggregate("sum", operandOf(x))).at(0),
            std::ranges::count_if(all, [](double v) { return v == -5 || v == 4 || v == 5; }));
  const Value total = aggregate("sum", y);
  for (const bool isTagged : {false, true}) {
    int tagged = 0;
    const Value share = host::makeFunctionHandle("share", [&tagged](const host::Call& call) {
      tagged += kxIsA(call.in(1), "kalvex.bigdata.internal.BroadcastArray") ? 1 : 0;
      call.out(0, matrix::sharedCopy(call.in(0)));
    });
    const Value options =
        host::call("kalvex.bigdata.internal.PartitionedArrayOptions",
                   {host::makeChars("PassTaggedInputs").get(), host::makeLogical(isTagged).get()});
    const Value wrapped = host::call("kalvex.bigdata.internal.broadcast", {list.get()});
    for (const Value& value :
         {matrix::sharedCopy(total.get()), matrix::sharedCopy(wrapped.get())}) {
      tagged = 0;
      gather(host::call("elementfun", {options.get(), share.get(), x.get(), value.get()}));
      EXPECT_EQ(tagged > 0, isTagged);
    }
  }
  for (const Value& rows : {matrix::sharedCopy(x.get()), whole()}) {
    const Value strict =
        host::call("strictslicefun", {sameFunction().get(), rows.get(), host::makeDouble(7).get()});
    EXPECT_EQ(errorOf([&] { gather(strict); }).identifier, "KALVEX:array:RowsDiffer");
  }
}

}  // namespace
}  // namespace kv::runtime::test
