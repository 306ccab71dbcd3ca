#include "CoreSession.h"

namespace bigdata {

namespace {

class CanSkipGather : public CoreSession {
 protected:
  /// An object of a new class with that name.
  Value objectOf(const std::string& name, std::vector<kv::host::MethodDefinition> methods = {},
                 std::vector<std::string> superclasses = {}) {
    auto definition = std::make_shared<kv::host::ClassDefinition>();
    definition->name = name;
    definition->superclasses = std::move(superclasses);
    definition->methods = std::move(methods);
    session.defineClass(definition);
    return callWith(name, {});
  }
};

TEST_F(CanSkipGather, TellsValuesThatAreThereFromThoseThatAreNot) {
  const std::vector<kv::host::MethodDefinition> gather{
      {.name = "gather", .body = [](const Call&) {}}};
  std::vector<Value> values;
  values.push_back(kv::host::makeDouble(1));
  values.push_back(kv::host::makeChars("text"));
  values.push_back(kv::host::makeCell({}));
  values.push_back(matrix::from_kalvex(kxCreateStructMatrix(1, 1, {})));
  values.push_back(kv::host::makeFunctionHandle("plus"));
  values.push_back(kv::host::makeString("text"));
  values.push_back(objectOf("table", gather));
  values.push_back(objectOf("Plain"));
  values.push_back(objectOf("tall"));
  values.push_back(objectOf("Gatherable", gather));
  values.push_back(objectOf("Inheriting", {}, {"Gatherable"}));
  std::vector<const kxArray*> inputs;
  for (const Value& value : values) inputs.push_back(value.get());
  const Value answers = std::move(session.call("canSkipGather", 1, inputs).at(0));
  ASSERT_EQ(kxGetM(answers.get()), 1u);
  ASSERT_EQ(kxGetN(answers.get()), inputs.size());
  const bool* flags = kxGetLogicals(answers.get());
  EXPECT_EQ(
      std::vector<bool>(flags, flags + inputs.size()),
      (std::vector<bool>{true, true, true, true, true, true, true, true, false, false, false}));
}

TEST_F(CanSkipGather, OfNothingIsARowOfNothing) {
  const Value none = std::move(session.call("canSkipGather", 1, {}).at(0));
  EXPECT_EQ(kxGetClassID(none.get()), kxLOGICAL_CLASS);
  EXPECT_EQ(kxGetM(none.get()), 1u);
  EXPECT_EQ(kxGetN(none.get()), 0u);
}

}  // namespace

}  // namespace bigdata
