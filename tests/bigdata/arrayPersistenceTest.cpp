#include "lazyeval/arrayPersistence.h"

#include <array>
#include <memory>

#include "LazySession.h"
#include "ki/createManagedObject.h"

namespace bigdata::lazyeval {

namespace {

using ::testing::ElementsAre;
using ::testing::Field;

constexpr std::string_view kArray = "kalvex.bigdata.internal.lazyeval.LazyPartitionedArray";

/// A host of release "7.2" that makes invalid arrays by itself.
class SavedArrays : public LazySession {
 protected:
  SavedArrays() {
    stub("version", [this](const Call& c) { c.out(0, kv::host::makeChars(release)); });
    calls.clear();
  }

  void completeInvalidArrays() {
    auto completion = std::make_shared<kv::host::ClassCompletion>();
    completion->name = kArray;
    completion->methods.push_back({.name = "createInvalidVersionArray",
                                   .body =
                                       [this](const Call& c) {
                                         note("createInvalidVersionArray", c);
                                         c.out(0, matrix::sharedCopy(invalid.get()));
                                       },
                                   .isStatic = true});
    session.completeClass(completion);
    invalid = lazyArray(constant(0));
    calls.clear();
  }

  /// A record with the fields of `saved`, but for its version.
  static Value withoutVersion(const Value& saved) {
    constexpr std::array<std::string_view, 2> kFields{"ValueFuture", "PartitionMetadata"};
    Value record = matrix::from_kalvex(kxCreateStructMatrix(1, 1, kFields));
    for (const std::string_view name : kFields) {
      kxSetField(record.get(), 0, name,
                 matrix::sharedCopy(kxGetField(saved.get(), 0, name)).release());
    }
    return record;
  }
  Value recordOf(const Value& array) {
    return makeArrayRecord(*ki::fromArray<LazyArrayPtr>(array.get()));
  }
  Value loaded(const Value& record) { return ki::toArray(loadArray(record.get())); }

  std::string release = "7.2";
  Value invalid;
};

TEST_F(SavedArrays, KeepReleaseFutureAndMetadata) {
  const Value array = lazyArray(future(closure({})));
  const Value head = kv::host::makeDouble(1), yes = kv::host::makeLogical(true);
  const kxArray* preview[] = {array.get(), head.get(), yes.get()};
  session.call("setCachedPreviewData", 0, preview);
  calls.clear();

  const Value record = recordOf(array);

  EXPECT_EQ(takeTrace(), "version(-release)");
  ASSERT_EQ(kxGetNumberOfFields(record.get()), 3u);
  EXPECT_EQ(kxGetFieldName(record.get(), 0), "Version");
  EXPECT_EQ(kxGetFieldName(record.get(), 1), "ValueFuture");
  EXPECT_EQ(kxGetFieldName(record.get(), 2), "PartitionMetadata");
  EXPECT_EQ(kxGetChars(kxGetField(record.get(), 0, "Version")), u"7.2");
}

TEST_F(SavedArrays, AreTheSameInTheReleaseThatSavedThem) {
  const Value array = lazyArray(future(closure({})));
  const Value record = recordOf(array);
  executor = kv::host::makeString("of the loading session");
  calls.clear();

  const Value again = loaded(record);

  EXPECT_EQ(kxGetClassID(calls.at(0).inputs.at(0).get()), kxSTRING_CLASS);
  EXPECT_EQ(takeTrace(), "version(-release) default() keepAlive(of the loading session)");
  EXPECT_TRUE(isSameObject(get(again, "ValueFuture"), get(array, "ValueFuture")));
  EXPECT_TRUE(isSameObject(get(again, "PartitionMetadata"), get(array, "PartitionMetadata")));
  EXPECT_EQ(getText(again, "Executor"), "of the loading session");
  EXPECT_FALSE(getFlag(again, "HasPreviewData"));
  EXPECT_TRUE(session.warnings().empty());
}

TEST_F(SavedArrays, OfAnyOtherReleaseAreInvalidWhateverTheyHold) {
  completeInvalidArrays();
  const Value array = lazyArray(constant(1));
  struct Case {
    Value record;
    const char* warned;
  };
  Case cases[] = {{recordOf(array), "7.2"},
                  {recordOf(array), "7.2"},
                  {withoutVersion(recordOf(array)), "2016b"},
                  {recordOf(array), "7.2"}};
  const char* releases[] = {"7.1", "7.3", "7.2", "7.2 "};
  kxSetField(cases[1].record.get(), 0, "ValueFuture", kv::host::makeDouble(3).release());

  for (std::size_t i = 0; i < std::size(cases); ++i) {
    session.clearWarnings();
    calls.clear();
    release = releases[i];
    const Value again = loaded(cases[i].record);
    EXPECT_EQ(takeTrace(),
              "version(-release) createInvalidVersionArray(" + std::string(cases[i].warned) + ")");
    EXPECT_TRUE(isSameObject(again, invalid));
    ASSERT_EQ(session.warnings().size(), 1u);
    const kv::host::Warning warning = session.warnings().front();
    EXPECT_EQ(warning.identifier, "KALVEX:bigdata:array:InvalidTallVersion");
    EXPECT_THAT(warning.arguments, ElementsAre(cases[i].warned));
  }
}

TEST_F(SavedArrays, WithoutAReleaseLoadWhereThatIs2016b) {
  const Value array = lazyArray(constant(1));
  const Value record = withoutVersion(recordOf(array));
  release = "2016b";
  EXPECT_TRUE(isSameObject(get(loaded(record), "ValueFuture"), get(array, "ValueFuture")));
  EXPECT_TRUE(session.warnings().empty());
}

TEST_F(SavedArrays, NeedTheMethodForInvalidOnes) {
  const Value record = recordOf(lazyArray(constant(1)));
  release = "8";
  EXPECT_EQ(
      errorOf([&] { loaded(record); }),
      internalError("Could not find method " + std::string(kArray) + "/createInvalidVersionArray"));
}

TEST_F(SavedArrays, OfBrokenRecordsFailWhereTheyAreUsed) {
  const Value record = recordOf(lazyArray(constant(1)));
  kxSetField(record.get(), 0, "ValueFuture", nullptr);
  const Value array = loaded(record);
  EXPECT_EQ(errorOf([&] { invoke(array, "hGetMetadata"); }), "KALVEX:class:InvalidHandle");

  kxSetField(record.get(), 0, "ValueFuture", kv::host::makeDouble(3).release());
  EXPECT_EQ(errorOf([&] { loaded(record); }),
            "KALVEX:validateattributes:invalidType | Input | scalar "
            "kalvex.bigdata.internal.lazyeval.ClosureFuture | double");
  kxSetField(record.get(), 0, "Version", kv::host::makeDouble(3).release());
  EXPECT_EQ(errorOf([&] { loaded(record); }), "KALVEX:string:MustBeStringScalarOrCharacterVector");
}

/// Through the host: the record takes the place of the stored properties, with the whole graph.
TEST_F(SavedArrays, TakeTheirGraphWithThem) {
  const FuturePtr shared = constant(4);
  const Value array = lazyArray(future(closure({shared, shared}), 0));

  const Value again = session.loadBytes(session.saveBytes(array.get()), false);

  const Value promise = get(get(again, "ValueFuture"), "Promise");
  EXPECT_EQ(getText(promise, "Id"), getText(get(get(array, "ValueFuture"), "Promise"), "Id"));
  const Value inputs = get(get(promise, "Closure"), "InputFutures");
  ASSERT_EQ(kxGetNumberOfElements(inputs.get()), 2u);
  EXPECT_EQ(kcos::omGetArrayElement(inputs.get(), 0).get(),
            kcos::omGetArrayElement(inputs.get(), 1).get());
}

}  // namespace

}  // namespace bigdata::lazyeval
