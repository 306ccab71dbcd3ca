#include "HostSession.h"
#include "NativeClasses.h"

namespace kv::test {

namespace {

/// One line per member: kind, name, then what the kind has.
std::vector<std::string> lines(const host::ClassDescription& description) {
  std::vector<std::string> lines;
  const auto count = [](int value) { return value < 0 ? "variadic" : std::to_string(value); };
  for (const host::MemberDescription& member : description.members) {
    std::string line = member.kind + " " + member.name;
    if (member.kind == "property") {
      line += " " + std::to_string(member.getAccess) + " " + std::to_string(member.setAccess) +
              " " + std::to_string(member.flags);
    } else {
      line += " " + std::to_string(member.access) + " " + member.form +
              (member.isStatic ? " static " : " ") + count(member.inputs) + " " +
              count(member.outputs);
    }
    lines.push_back(line);
  }
  return lines;
}

using Describe = HostSession;

TEST_F(Describe, AClassListsItsOwnMembersAsItRegisteredThem) {
  auto* info = new NativeClass("Shown", [](COSClass* cls, const COSClient*) {
    cls->addSuperclass(id("lab.NotDefined"), 1, 0, 1);
    cls->addMethod(partConstructor("lab.Shown", MemberAccess::Private, 0));
    cls->addProperty(new ValueProperty("Value", "lab.Shown", MemberAccess::Private));
    cls->addProperty(new ValueProperty("Twin", "lab.Shown", MemberAccess::None, false));
    cls->addMethod(new NativeMethod("fixed", MemberAccess::Public, 2, answers("")));
    cls->addMethod(new NativeMethod("any", MemberAccess::Protected, -1, answers("")));
    cls->addMethod(new NativeMethod("open", MemberAccess::Public, -1, {}, NativeMethod::kAbstract));
    cls->declareMethod(id("later"), MemberAccess::Public);
    cls->declareStaticMethod(id("make"), MemberAccess::Private);
  });
  enter(info->sealed());
  complete({.name = "lab.Shown", .methods = {{.name = "later", .body = says("")}}});
  const host::ClassDescription shown = session.describe("lab.Shown");
  EXPECT_EQ(shown.name, "lab.Shown");
  EXPECT_EQ(shown.superclasses, std::vector<std::string>{"lab.NotDefined"});
  EXPECT_TRUE(shown.isSealed);
  EXPECT_TRUE(shown.isNative);
  EXPECT_EQ(lines(shown), (std::vector<std::string>{
                              "constructor  2  0 1",
                              "property Value 0 2 2560",
                              "property Twin 0 5 10784",
                              "method fixed 0 fixed 2 1",
                              "method any 1 variadic variadic variadic",
                              "method open 0 abstract variadic variadic",
                              "method later 0 declared variadic variadic",
                              "method make 2 declared static variadic variadic",
                          }));
}

TEST_F(Describe, ALanguageClassReadsTheSameWay) {
  const host::ClassDescription error = session.describe("KException");
  EXPECT_FALSE(error.isNative);
  EXPECT_EQ(lines(error)[0], "constructor  0  variadic variadic");
  EXPECT_EQ(lines(error)[1], "property identifier 0 1 2560");
  EXPECT_EQ(failure([&] { session.describe("lab.Nothing"); }),
            "KALVEX:UndefinedFunction | lab.Nothing");
}

}  // namespace
}  // namespace kv::test
