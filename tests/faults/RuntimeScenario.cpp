#include "faults/RuntimeScenario.h"

#include <vector>

#include "kv/runtime/runtime.h"

namespace kv::test {

RuntimeScenario::RuntimeScenario() {
  runtime::load(session_);
  const std::vector<std::string> paths = {
      folder_.write("a.csv", "x,y,word\n1,10,a\n2,20,b\n3,NA,\n"),
      folder_.write("b.csv", "x,y,word\n4,40,d\n5,50,e\n")};
  const Value source = host::call("kalvex.io.CsvDatastore", {host::makeStringColumn(paths).get()});
  table_ = host::call("createFromDatastoreBuiltin", {source.get()});
  x_ = column(table_, "x");
}

std::string RuntimeScenario::run() {
  std::string answer;
  session_.load([&] { answer = work(); });
  return answer;
}

Value RuntimeScenario::table() const { return matrix::sharedCopy(table_.get()); }

Value RuntimeScenario::column(const Value& table, std::string_view name) {
  const Value rows = host::makeChars(":");
  const Value variable = host::makeChars(name);
  const Value content = host::makeLogical(true);
  return host::call("subsrefTabularVar", {rows.get(), variable.get(), content.get(), table.get()});
}

Value RuntimeScenario::element(std::string_view function, const Value& a, const Value& b) {
  const Value handle = host::makeFunctionHandle("kv.element." + std::string(function));
  return host::call("elementfun", {handle.get(), a.get(), b.get()});
}

Value RuntimeScenario::aggregate(std::string_view function, const Value& a) {
  const Value handle = host::makeFunctionHandle("kv.aggregate." + std::string(function));
  return host::call("aggregatefun", {handle.get(), handle.get(), a.get()});
}

Value RuntimeScenario::filter(const Value& keep, const Value& a) {
  return host::call("filterslices", {keep.get(), a.get()});
}

Value RuntimeScenario::random(const Value& rows) {
  const Value label = host::makeChars("RequiresRandState");
  const Value yes = host::makeLogical(true);
  const Value options =
      host::call("kalvex.bigdata.internal.PartitionedArrayOptions", {label.get(), yes.get()});
  const Value draw = host::makeFunctionHandle("draw", [](const host::Call& call) {
    const Value count = host::makeDouble(static_cast<double>(kxGetM(call.in(0))));
    call.out(0, host::call("rand", {count.get()}));
  });
  return host::call("elementfun", {options.get(), draw.get(), rows.get()});
}

std::string RuntimeScenario::gather(std::initializer_list<const kxArray*> arrays) {
  std::string answer;
  for (const Value& value : host::callMany("gather", static_cast<int>(arrays.size()),
                                           std::span(arrays.begin(), arrays.size()))) {
    const auto* numbers = kxGetClassID(value.get()) == kxDOUBLE_CLASS
                              ? static_cast<const double*>(kxGetData(value.get()))
                              : nullptr;
    answer += kxGetClassName(value.get()) + ":";
    for (std::size_t i = 0; numbers != nullptr && i < kxGetNumberOfElements(value.get()); ++i) {
      answer += " " + std::to_string(numbers[i]);
    }
    answer += "; ";
  }
  return answer;
}

}  // namespace kv::test
