#include "HostSession.h"

namespace kv::test {

namespace {

/// lab.Base has a member of each level; lab.Derived inherits them; lab.Other has none of them.
class Access : public HostSession {
 protected:
  Access() {
    ClassDefinition base;
    base.name = "lab.Base";
    base.constructor = MethodDefinition{.name = "Base", .body = [](const Call& call) {
                                          host::setSlot(call.in(0), "fixed", host::makeDouble(1));
                                        }};
    const std::pair<const char*, MemberAccess> levels[] = {{"open", MemberAccess::Public},
                                                           {"guarded", MemberAccess::Protected},
                                                           {"secret", MemberAccess::Private}};
    for (const auto& [name, access] : levels) {
      base.methods.push_back(
          {.name = std::string(name) + "Method", .body = says(name), .access = access});
      base.properties.push_back({name, nullptr, access, access, {}});
      base.methods.push_back(
          {.name = std::string("reach_") + name, .body = forwardsTo(std::string(name) + "Method")});
    }
    base.properties.push_back(
        {"fixed", nullptr, MemberAccess::Public, MemberAccess::Immutable, {}});
    base.properties.push_back({"frozen", nullptr, MemberAccess::Public, MemberAccess::None, {}});
    define(base);

    ClassDefinition derived;
    derived.name = "lab.Derived";
    derived.superclasses = {"lab.Base"};
    define(derived);
    ClassDefinition other;
    other.name = "lab.Other";
    define(other);
  }

  static std::string denied(const char* member) {
    return std::string("KALVEX:class:AccessDenied | lab.Base | ") + member;
  }
};

TEST_F(Access, FollowsTheClassOfTheCaller) {
  const Value object = call("lab.Derived");
  struct Row {
    const char* asClass;
    bool guarded, secret;
  };
  for (const Row& row : {Row{"", false, false}, Row{"lab.Other", false, false},
                         Row{"lab.Derived", true, false}, Row{"lab.Base", true, true}}) {
    SCOPED_TRACE(row.asClass);
    const auto expect = [&](const char* member, bool allowed) {
      const std::string outcome = allowed ? "no error" : denied(member);
      const std::string method = std::string(member) + "Method";
      EXPECT_EQ(failure([&] { get(object, member, row.asClass); }), outcome);
      EXPECT_EQ(failure([&] { set(object, member, host::makeDouble(2), row.asClass); }), outcome);
      EXPECT_EQ(failure([&] { callAs(row.asClass, method, object); }),
                allowed ? outcome : denied(method.c_str()));
    };
    expect("open", true);
    expect("guarded", row.guarded);
    expect("secret", row.secret);
  }
}

TEST_F(Access, BodiesRunWithTheRightsOfTheirClassAndFunctionsWithNone) {
  const Value object = call("lab.Derived");
  EXPECT_EQ(said("reach_secret", object), "secret");
  session.defineFunction("publicCode", forwardsTo("secretMethod"));
  EXPECT_EQ(failure([&] { callAs("lab.Base", "publicCode", object); }), denied("secretMethod"));
  EXPECT_EQ(failure([&] { callAs("lab.Base", "feval", host::makeChars("secretMethod"), object); }),
            denied("secretMethod"));
}

TEST_F(Access, SettingMayBeRefusedToTheClassItself) {
  const Value object = call("lab.Base");
  EXPECT_EQ(host::toDouble(get(object, "fixed").get()), 1);
  for (const char* asClass : {"", "lab.Derived", "lab.Base"}) {
    EXPECT_EQ(failure([&] { set(object, "fixed", host::makeDouble(2), asClass); }),
              denied("fixed"));
    EXPECT_EQ(failure([&] { set(object, "frozen", host::makeDouble(2), asClass); }),
              denied("frozen"));
  }
}

TEST_F(Access, AnImmutablePropertyIsSetByTheConstructorOfItsClass) {
  ClassDefinition dated;
  dated.name = "lab.Dated";
  dated.properties.push_back({"day", nullptr, MemberAccess::Public, MemberAccess::Immutable, {}});
  dated.constructor = MethodDefinition{.name = "Dated", .body = [this](const Call& call) {
                                         session.set(call.in(0), "day", call.in(1), "lab.Dated");
                                       }};
  define(dated);
  EXPECT_EQ(host::toDouble(get(call("lab.Dated", host::makeDouble(4)), "day").get()), 4);
}

TEST_F(Access, ASuperclassReachesWhatItsSubclassMadeOfAProtectedMember) {
  ClassDefinition plan;
  plan.name = "lab.Plan";
  plan.methods = {{.name = "step", .access = MemberAccess::Protected, .isAbstract = true},
                  {.name = "run", .body = forwardsTo("step")}};
  define(plan);
  ClassDefinition real;
  real.name = "lab.RealPlan";
  real.superclasses = {"lab.Plan"};
  real.methods = {{.name = "step", .body = says("stepped"), .access = MemberAccess::Protected}};
  define(real);
  const Value object = call("lab.RealPlan");
  EXPECT_EQ(said("run", object), "stepped");
  EXPECT_EQ(failure([&] { call("step", object); }),
            "KALVEX:class:AccessDenied | lab.RealPlan | step");
}

TEST_F(Access, MissingMembersAreNamedWithTheClassThatWasAsked) {
  const Value object = call("lab.Derived");
  EXPECT_EQ(failure([&] { get(object, "nothing"); }),
            "KALVEX:class:NoSuchMember | lab.Derived | nothing");
  EXPECT_EQ(failure([&] { set(object, "nothing", nullptr); }),
            "KALVEX:class:NoSuchMember | lab.Derived | nothing");
  EXPECT_EQ(failure([&] { invoke(object, "nothing"); }),
            "KALVEX:class:NoSuchMember | lab.Derived | nothing");
  EXPECT_EQ(failure([&] { callAs("lab.Missing", "open", object); }),
            "KALVEX:UndefinedFunction | lab.Missing");
}

TEST_F(Access, ADeletedObjectIsRefused) {
  const Value object = call("lab.Base");
  session.deleteObject(object.get());
  EXPECT_EQ(failure([&] { get(object, "open"); }), "KALVEX:class:InvalidHandle");
  EXPECT_EQ(failure([&] { set(object, "open", nullptr); }), "KALVEX:class:InvalidHandle");
  EXPECT_EQ(failure([&] { invoke(object, "openMethod"); }), "KALVEX:class:InvalidHandle");
}

}  // namespace
}  // namespace kv::test
