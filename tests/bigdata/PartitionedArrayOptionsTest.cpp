#include "CoreSession.h"

namespace bigdata {
namespace {

using kv::host::makeChars;
using kv::host::makeDouble;
using kv::host::makeLogical;
using kv::host::makeString;

class Options : public CoreSession {
 protected:
  template <class... Inputs>
  Value options(const Inputs&... inputs) {
    return make("PartitionedArrayOptions", inputs...);
  }
  const Value requiresRandState = makeChars("RequiresRandState");
};

TEST_F(Options, TakeNamesAsCharsOrStringsAndValuesByTheirConversion) {
  const Value made = options(requiresRandState, makeDouble(5), makeString("RandStreamFactory"),
                             makeDouble(7), makeString("PassTaggedInputs"), makeLogical(true));
  EXPECT_TRUE(getFlag(made, "RequiresRandState"));
  EXPECT_TRUE(getFlag(made, "RequiresGlobalState"));
  EXPECT_TRUE(getFlag(made, "PassTaggedInputs"));
  EXPECT_EQ(getDouble(made, "RandStreamFactory"), 7.0);
  EXPECT_FALSE(
      getFlag(options(requiresRandState, makeLogical(true), requiresRandState, makeLogical(false)),
              "RequiresRandState"));
}

TEST_F(Options, LookAtNoValueBeforeAllNamesAreKnown) {
  const Value bad = makeChars("no flag");
  EXPECT_EQ(errorOf([&] { options(requiresRandState, bad, makeChars("Other"), bad); }),
            "KALVEX:InputParser:UnmatchedParameter | Other | ");
  EXPECT_EQ(errorOf([&] { options(requiresRandState, bad); }),
            "KALVEX:validateattributes:invalidType | Input | scalar logical | ");
}

TEST_F(Options, HaveDefaultsThatCanBeChangedButForTheDerivedFlag) {
  const Value made = options();
  EXPECT_FALSE(getFlag(made, "RequiresGlobalState"));
  EXPECT_FALSE(getFlag(made, "PassTaggedInputs"));
  EXPECT_EQ(get(made, "RandStreamFactory"), nullptr);
  session.set(made.get(), "RequiresRandState", makeLogical(true).get());
  EXPECT_TRUE(getFlag(made, "RequiresGlobalState"));
  EXPECT_NE(
      errorOf([&] { session.set(made.get(), "RequiresGlobalState", makeLogical(true).get()); }),
      "no error");
}

}  // namespace
}  // namespace bigdata
