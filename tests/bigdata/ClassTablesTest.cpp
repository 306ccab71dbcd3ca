#include <algorithm>
#include <set>

#include "CoreSession.h"
#include "describeAsText.h"

namespace bigdata {
namespace {

class ClassTables : public CoreSession {
 protected:
  std::string described(const std::string& className) {
    return "\n" + describeAsText(session.describe("kalvex.bigdata.internal." + className));
  }
};

TEST_F(ClassTables, OfAllClassesUseOnlyKnownAccessAndFlags) {
  const std::set<int> getAccess = {0, 1, 2};
  const std::set<int> setAccess = {0, 1, 2, 3, 5};
  const std::set<unsigned> flags = {2560, 10784, 2592, 2049};
  for (const std::string& name : session.classes()) {
    SCOPED_TRACE(name);
    const kv::host::ClassDescription description = session.describe(name);
    EXPECT_EQ(description.name, name);
    EXPECT_TRUE(description.isNative);
    EXPECT_FALSE(description.members.empty());
    for (const kv::host::MemberDescription& member : description.members) {
      SCOPED_TRACE(member.kind + " " + member.name);
      if (member.kind == "property") {
        EXPECT_TRUE(getAccess.contains(member.getAccess));
        EXPECT_TRUE(setAccess.contains(member.setAccess));
        EXPECT_TRUE(flags.contains(member.flags));
        EXPECT_FALSE(member.flags == 2560 && member.setAccess == 5)
            << "a setter that nobody may call";
      } else {
        EXPECT_TRUE(getAccess.contains(member.access));
      }
    }
  }
}

TEST_F(ClassTables, OfAllClassesListConstructorsThenPropertiesThenMethods) {
  for (const std::string& name : session.classes()) {
    std::string order;
    for (const auto& member : session.describe(name).members) order += member.kind[0];
    EXPECT_TRUE(std::is_sorted(order.begin(), order.end(),
                               [](char a, char b) {
                                 const std::string_view rank = "cpm";
                                 return rank.find(a) < rank.find(b);
                               }))
        << name << ": " << order;
  }
}

TEST_F(ClassTables, OfCallSupport) {
  EXPECT_EQ(described("FunctionHandle"), R"(
constructor 2 (0)
constructor 0 (any)
property Handle 0/2 2560
property ErrorStack 0/2 2560
property MaxNumSlices 0/2 2560
method feval 0 any
method throwAsFunction 0 2->0
method copy 0 1->1
method copyWithNewHandle 0 2->1
)");
  EXPECT_EQ(described("InternalStackFrame"), R"(
constructor 0 (0)
constructor 0 (1)
)");
  EXPECT_EQ(described("PartitionedArrayOptions"), R"(
constructor 0 (any)
property RequiresRandState 0/0 2560
property RequiresGlobalState 0/5 10784
property RandStreamFactory 0/0 2560
property PassTaggedInputs 0/0 2560
)");
}

TEST_F(ClassTables, OfStrategies) {
  EXPECT_EQ(described("executor.PartitionStrategy"), R"(
constructor 1 (0)
property MinNumPartitions 0/3 2049
property MaxNumPartitions 0/3 2049
property IsDatastorePartitioning 0/3 2049
property IsBroadcast 0/3 2049
property MaxNumReadFailures 0/3 2049
method getMinNumPartitions 0 1->1
method getMaxNumPartitions 0 1->1
method createPartition 0 abstract
method fixNumPartitions 0 abstract
method resolve 0 abstract
method numpartitions 0 1->1
method numpartitions 0 2->1
method isKnownSinglePartition 0 abstract
method allowsSinglePartition 0 1->1
method isResolved 0 1->1
method isCompatible 0 2->1
method throwIfIncompatible 0 2->0
method typedIsCompatible 1 abstract
method typedThrowIfIncompatible 1 abstract
method typedAlign 1 abstract
)");

  const std::string base = "\n< kalvex.bigdata.internal.executor.PartitionStrategy\n";
  const std::string derived = R"(property MaxNumPartitions 0/3 10784
property IsDatastorePartitioning 0/3 10784
property IsBroadcast 0/3 10784
property MaxNumReadFailures 0/3 10784
method createPartition 0 3->1
method fixNumPartitions 0 2->1
method resolve 0 4->1
method isKnownSinglePartition 0 1->1
method typedIsCompatible 0 2->1
method typedThrowIfIncompatible 0 2->0
method typedAlign 0 2->1
)";
  const std::string open = "constructor 0 (0)\nproperty MinNumPartitions 0/3 10784\n";
  EXPECT_EQ(described("executor.ArbitraryPartitionStrategy"), base + open + derived);
  EXPECT_EQ(described("executor.BroadcastPartitionStrategy"), base + open + derived);
  EXPECT_EQ(described("executor.FixedNumPartitionStrategy"),
            base + "constructor 2 (0)\nconstructor 0 (1)\nproperty MinNumPartitions 0/3 2560\n" +
                derived);
}

TEST_F(ClassTables, OfTheClosureGraph) {
  EXPECT_EQ(described("optimizer.ClosureGraph"), R"(
constructor 2 (0)
constructor 0 (any)
property Graph 0/2 2560
property Futures 0/2 2560
method recalculate 0 1->0
)");
}

TEST_F(ClassTables, OfMetadataAndProcessorBuilders) {
  EXPECT_EQ(described("PartitionMetadata"), R"(
constructor 2 (0)
constructor 0 (1)
property Strategy 0/3 2560
)");
  EXPECT_EQ(described("executor.CompositeDataProcessorBuilder"), R"(
< kalvex.bigdata.internal.executor.DataProcessorFactory
constructor 2 (0)
constructor 0 (2)
constructor 0 (3)
constructor 0 (1)
property Id 0/2 2560
property InputBuilders 0/2 2560
property DataProcessorFactory 0/2 2560
property InputId 0/2 2560
property InputOrdinal 0/2 2560
property OutputPartitionStrategy 0/2 2560
property Graph 2/2 2560
property AllInputIds 0/5 10784
property IsGlobalInput 0/5 10784
method findAllBuilders 2 1->1
method findAllDependencies 2 1->3
method feval 0 declared
method getAllInputIds 2 declared
method getAsGraph 2 declared
method buildGraph 2 declared
method buildUnderlyingProcessor 2 declared
)");
}

}  // namespace
}  // namespace bigdata
