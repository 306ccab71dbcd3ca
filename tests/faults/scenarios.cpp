#include <array>
#include <optional>
#include <utility>
#include <vector>

#include "faults/RuntimeScenario.h"
#include "kv/array.h"
#include "kv/host/errors.h"
#include "kv/runtime/runtime.h"
#include "publicCall.h"

namespace kv::test {

namespace {

/// Records 200 operations of all common kinds; none of them runs.
class Recording final : public RuntimeScenario {
 public:
  std::string work() override {
    for (int round = 0; round < 20; ++round) {
      recordTen();
    }
    return "recorded";
  }

 private:
  void recordTen() const {
    const Value one = host::makeDouble(1);
    const Value y = column(table(), "y");                               // 1
    const Value sum = element("plus", x(), y);                          // 2
    const Value few = filter(element("gt", sum, one), y);               // 3, 4
    const Value twice = call("slicefun", "kv.element.plus", few, few);  // 5
    const Value least = aggregate("min", twice);                        // 6
    const Value chosen =                                                // 7
        host::call("ternaryfun", {host::makeLogical(true).get(), x().get(), y.get()});
    const Value texts = column(table(), "word");  // 8
    const Value drawn = random(chosen);           // 9
    const Value constant = host::call("createFromConstantBuiltin", {one.get()});
    element("minus", constant, one);  // 10, done at once
    host::call("markforreuse", {least.get()});
    host::callMany("elementfun", 2, std::vector{swap_.get(), constant.get(), one.get()});
  }

  const Value swap_ = host::makeFunctionHandle("swap", [](const host::Call& call) {
    call.out(0, matrix::sharedCopy(call.in(1)));
    call.out(1, matrix::sharedCopy(call.in(0)));
  });

  static Value call(kcos::NameRef method, std::string_view function, const Value& a,
                    const Value& b) {
    return host::call(method, {host::makeFunctionHandle(function).get(), a.get(), b.get()});
  }
};

/// Plans what was recorded before.
class Planning final : public RuntimeScenario {
 public:
  std::string work() override {
    const Value y = column(table(), "y");
    const Value mean = aggregate("mean", element("times", x(), y));
    const Value spread = aggregate("std", element("minus", x(), mean));
    const Value plan = host::call("kv.explain", {spread.get(), random(y).get()});
    return "planned " + std::to_string(host::toText(plan.get()).find("passes"));
  }
};

/// Two passes over two small files: built-in and user functions, random numbers, rows and texts.
class Evaluating final : public RuntimeScenario {
 public:
  std::string work() override {
    const Value y = column(table(), "y");
    const Value mean = aggregate("mean", x());
    const Value apart = aggregate("sum", element("minus", x(), mean));
    const Value few = filter(element("gt", x(), mean), y);
    return gather({mean.get(), apart.get(), few.get(), aggregate("count", random(x())).get(),
                   mine(y).get(), column(table(), "word").get()});
  }

 private:
  static Value mine(const Value& a) {
    const Value handle = host::makeFunctionHandle("mine", [](const host::Call& call) {
      call.out(0, host::call("kv.element.plus", {call.in(0), call.in(0)}));
    });
    return host::call("elementfun", {handle.get(), a.get()});
  }
};

/// Gathers arrays that were recorded before, including those that an earlier evaluation failed on.
class Regathering final : public RuntimeScenario {
 public:
  std::string work() override {
    return gather({mean_.get(), rows_.get()}) + gather({rows_.get(), x().get()});
  }

 private:
  const Value mean_ = aggregate("mean", x());
  const Value rows_ = element("minus", x(), mean_);
};

/// A user's function raises in the middle of a pass.
class Failing final : public RuntimeScenario {
 public:
  std::string work() override {
    const Value handle = host::makeFunctionHandle("fails", [](const host::Call& call) {
      if (kxGetScalar(call.in(0)) == 4) {
        host::raiseWithMessage("my:error", "no fours, please");
      }
      call.out(0, matrix::sharedCopy(call.in(0)));
    });
    return gather({host::call("elementfun", {handle.get(), x().get()}).get()});
  }
};

/// Saves arrays with their graph to a file.
class Saving final : public RuntimeScenario {
 public:
  std::string work() override {
    session()->save(files_.path("saved.kv"), recorded_.get());
    return "saved " + std::to_string(session()->saveBytes(recorded_.get()).size());
  }

 private:
  const TempFolder files_;
  const Value recorded_ = [this] {
    std::vector<Value> arrays;
    arrays.push_back(aggregate("mean", element("plus", x(), column(table(), "y"))));
    arrays.push_back(random(x()));
    return host::makeCell(std::move(arrays));
  }();
};

/// Loads a file of arrays, which are evaluated.
class Loading final : public RuntimeScenario {
 public:
  std::string work() override { return gather({session()->loadBytes(saved_, true).get()}); }

 private:
  const std::string saved_ =
      session()->saveBytes(aggregate("mean", element("plus", x(), column(table(), "y"))).get());
};

/// The calls of front ends of the host: calls by name, members, objects and errors from outside.
class Calling final : public RuntimeScenario {
 public:
  std::string work() override {
    host::Session& session = *this->session();
    const std::vector<const kxArray*> two = {x().get(), x().get()};
    const Value count = host::makeDouble(3);
    const std::vector<const kxArray*> three = {count.get()};
    const Value strategy =
        session.construct("kalvex.bigdata.internal.executor.FixedNumPartitionStrategy", three);
    const Value partitions = session.get(strategy.get(), "DesiredNumPartitions");
    const Value copy = session.copyInstance(strategy.get());
    session.invoke(x().get(), "hasCachedPreviewData", 1, {});
    session.deleteObject(copy.get());
    session.collect();
    session.describe("kalvex.bigdata.internal.lazyeval.Closure");
    session.call("no.such.function", 1, two);
    return "called";
  }
};

/// The calls of a user of the C++ front end: reads, writes expressions, plans, gathers, fails.
class FrontEnd final : public Scenario {
 public:
  host::Session* session() override { return &session_->impl().host; }
  FrontEnd() { folder_.write("a.csv", "x,y,word\n1,10,a\n2,20,b\n3,NA,\n"); }

  std::string run() override {
    const Table table = session_->read(path_);
    const Array x = table.column("x");
    const Array y = table.filter(x > 1).column("y");
    const Array word = where(x == 2, table.column("word"), "other");
    const Array own = map(kOwn, std::array{x});
    const Array total = sum(own + session_->constant(1));
    const Gathered gathered = session_->gather(std::array{y, word, total, std::as_const(x)});
    const std::string text = gathered.values[1].text(1).value_or("none");
    session_->explain(std::array{total});
    table.rand();
    return text + " " + std::to_string(gathered.values[2].number()) + " " +
           std::to_string(x.gather().rows());
  }

 private:
  static std::vector<double> own(std::span<const std::span<const double>> inputs) {
    return {inputs[0].begin(), inputs[0].end()};
  }
  inline static const BlockFunction kOwn = own;

  TempFolder folder_;
  std::string path_ = folder_.path();
  std::unique_ptr<Session> session_ = std::make_unique<Session>();
};

/// The same, up to the error of a user's function.
class FrontEndError final : public Scenario {
 public:
  host::Session* session() override { return &session_->impl().host; }
  FrontEndError() : path_(folder_.write("a.csv", "x\n1\n2\n")) {}

  std::string run() override {
    const Array x = session_->read(path_).column("x");
    map(kFails, std::array{x}).gather();
    return "no error";
  }

 private:
  static std::vector<double> fails(std::span<const std::span<const double>>) {
    throw Error("my:error", "no numbers, please");
  }
  inline static const BlockFunction kFails = fails;

  TempFolder folder_;
  std::string path_;
  std::unique_ptr<Session> session_ = std::make_unique<Session>();
};

/// Opens and closes a session of the C++ front end.
class FrontEndOpening final : public Scenario {
 public:
  std::string run() override {
    const Session session;
    return "opened";
  }
};

/// Opens and closes a session of the host with core and runtime.
class Opening final : public Scenario {
 public:
  std::string run() override {
    session_.emplace();
    runtime::load(*session_);
    session_->call("version", 1, {});
    session_.reset();
    return "opened";
  }

 private:
  std::optional<host::Session> session_;  ///< stays open after a failure: its errors live in it
};

/// Closes a session that holds many objects.
class Closing final : public Scenario {
 public:
  Closing() { recorded_.run(); }
  std::string run() override {
    recorded_.session()->close();
    return "closed";
  }

 private:
  Recording recorded_;
};

template <class Work>
std::unique_ptr<Scenario> make() {
  return std::make_unique<Work>();
}

}  // namespace

std::span<const ScenarioRow> scenarios() {
  static constexpr ScenarioRow kRows[] = {
      {"record", make<Recording>},
      {"plan", make<Planning>},
      {"evaluate", make<Evaluating>},
      {"gather again", make<Regathering>},
      {"user error", make<Failing>},
      {"save", make<Saving>},
      {"load", make<Loading>},
      {"call", make<Calling>},
      {"open", make<Opening>},
      {"close", make<Closing>},
      {"array", make<FrontEnd>},
      {"array error", make<FrontEndError>},
      {"array open", make<FrontEndOpening>},
  };
  return kRows;
}

}  // namespace kv::test
