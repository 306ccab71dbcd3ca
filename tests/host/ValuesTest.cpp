#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <thread>

#include "foundation/i18n.h"
#include "kv/host/session.h"
#include "kv/host/values.h"
#include "kx/array.h"
#include "kx/string.h"

namespace kv::test {

namespace {

using host::Value;
using matrix::from_kalvex;

Value numeric(std::vector<std::size_t> dimensions, kxClassID classId) {
  return from_kalvex(kxCreateNumericArray(dimensions, classId));
}

Value column(std::vector<double> elements) {
  Value array = numeric({elements.size(), 1}, kxDOUBLE_CLASS);
  if (!elements.empty()) {
    std::memcpy(kxGetMutableData(array.get()), elements.data(), elements.size() * sizeof(double));
  }
  return array;
}

TEST(ValuesTest, ClassesHaveTheirNumbersNamesAndSizes) {
  struct Row {
    kxClassID classId;
    int number;
    const char* name;
    std::size_t elementBytes;
    bool isNumeric;
  };
  static constexpr Row kRows[] = {
      {kxLOGICAL_CLASS, 3, "logical", 1, false}, {kxCHAR_CLASS, 4, "char", 2, false},
      {kxDOUBLE_CLASS, 6, "double", 8, true},    {kxSINGLE_CLASS, 7, "single", 4, true},
      {kxINT8_CLASS, 8, "int8", 1, true},        {kxUINT8_CLASS, 9, "uint8", 1, true},
      {kxINT16_CLASS, 10, "int16", 2, true},     {kxUINT16_CLASS, 11, "uint16", 2, true},
      {kxINT32_CLASS, 12, "int32", 4, true},     {kxUINT32_CLASS, 13, "uint32", 4, true},
      {kxINT64_CLASS, 14, "int64", 8, true},     {kxUINT64_CLASS, 15, "uint64", 8, true},
  };
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.name);
    for (const std::size_t rows : {0u, 1u, 2u, 31u, 1234u}) {
      const Value array = numeric({rows, 3}, row.classId);
      EXPECT_EQ(kxGetClassID(array.get()), row.number);
      EXPECT_EQ(kxGetClassName(array.get()), row.name);
      EXPECT_EQ(kxIsNumeric(array.get()), row.isNumeric);
      EXPECT_EQ(kxGetElementSize(row.classId), row.elementBytes);
      EXPECT_EQ(kxGetNumberOfElements(array.get()), rows * 3);
      EXPECT_EQ(kxIsEmpty(array.get()), rows == 0);
      if (rows != 0) {
        EXPECT_EQ(kxGetScalar(array.get()), 0.0);
      }
    }
    const Value scalar = numeric({1, 1}, row.classId);
    if (row.classId != kxDOUBLE_CLASS && row.classId != kxSINGLE_CLASS) {
      std::memset(kxGetMutableData(scalar.get()), 1, 1);
      EXPECT_EQ(kxGetScalar(scalar.get()), 1.0);
    }
    EXPECT_TRUE(kxIsScalar(scalar.get()));
    EXPECT_TRUE(kxIsA(scalar.get(), kcos::NameRef::of(row.name)));
  }
}

TEST(ValuesTest, NullIsAnEmptyValueOfNoClass) {
  EXPECT_EQ(kxGetClassID(nullptr), kxUNKNOWN_CLASS);
  EXPECT_FALSE(kxIsScalar(nullptr));
  EXPECT_TRUE(kxIsEmpty(nullptr));
  EXPECT_FALSE(kxIsNumeric(nullptr));
  EXPECT_FALSE(kxIsA(nullptr, "double"));
  EXPECT_FALSE(kxHasRootRecord(nullptr));
  EXPECT_EQ(matrix::sharedCopy(nullptr), nullptr);
}

TEST(ValuesTest, DimensionsAreAtLeastTwoAndLoseTrailingOnes) {
  struct Row {
    std::vector<std::size_t> given;
    std::vector<std::size_t> kept;
  };
  const Row rows[] = {{{2, 3}, {2, 3}},       {{2, 1, 1}, {2, 1}},    {{1, 1, 1, 1}, {1, 1}},
                      {{2, 3, 4}, {2, 3, 4}}, {{0, 3, 4}, {0, 3, 4}}, {{2, 1, 5, 1}, {2, 1, 5}},
                      {{0, 0}, {0, 0}},       {{3, 0}, {3, 0}}};
  for (const Row& row : rows) {
    const Value array = numeric(row.given, kxINT16_CLASS);
    const Value copy = matrix::sharedCopy(array.get());
    for (const kxArray* each : {array.get(), copy.get()}) {
      const auto dimensions = kxGetDimensions(each);
      EXPECT_EQ(std::vector<std::size_t>(dimensions.begin(), dimensions.end()), row.kept);
      EXPECT_EQ(kxGetM(each), row.kept[0]);
      EXPECT_EQ(kxGetM(each) * kxGetN(each), kxGetNumberOfElements(each));
    }
  }
}

TEST(ValuesTest, SharedCopyHasTheSameMemoryAndIsTheSameValue) {
  Value array = column({1, 2, 3});
  const Value copy = matrix::sharedCopy(array.get());
  EXPECT_NE(array.get(), copy.get());
  EXPECT_EQ(kxGetData(array.get()), kxGetData(copy.get()));
  EXPECT_TRUE(kxIsSameValue(array.get(), copy.get()));
  EXPECT_FALSE(kxIsSameValue(array.get(), column({1, 2, 3}).get()));
  const Value one = kv::host::makeDouble(1), empty = kv::host::makeEmptyDouble();
  EXPECT_TRUE(kxIsSameValue(one.get(), one.get()));
  EXPECT_FALSE(kxIsSameValue(one.get(), kv::host::makeDouble(1).get()));
  EXPECT_FALSE(kxIsSameValue(empty.get(), kv::host::makeEmptyDouble().get()));
  EXPECT_THROW(kxGetMutableData(array.get()), std::logic_error);
  array.reset();
  EXPECT_EQ(static_cast<const double*>(kxGetData(copy.get()))[2], 3);
}

TEST(ValuesTest, ArrayStaysUntilItsLastOwnerGoes) {
  const std::size_t before = host::ledger().arrays;
  Value first = host::makeDouble(7);
  EXPECT_EQ(kxGetReferenceCount(first.get()), 0u);
  kxAddReference(first.get());
  EXPECT_EQ(kxGetReferenceCount(first.get()), 1u);
  const Value second(first.get());
  first.reset();
  EXPECT_EQ(kxGetReferenceCount(second.get()), 0u);
  EXPECT_EQ(host::toDouble(second.get()), 7);
  EXPECT_EQ(host::ledger().arrays, before + 1);
}

TEST(ValuesTest, BorrowedMemoryIsNeverCopiedAndIsKeptUntilTheLastArrayGoes) {
  for (const std::size_t count : {0u, 1u, 5u, 100'000u}) {
    auto memory = std::make_shared<std::vector<double>>(count + 1);
    std::iota(memory->begin(), memory->end(), 1.0);
    const std::size_t dimensions[] = {count, 1};
    Value array =
        from_kalvex(kxCreateBorrowedArray(dimensions, kxDOUBLE_CLASS, memory->data(), memory));
    Value copy = matrix::sharedCopy(array.get());
    EXPECT_EQ(kxGetData(copy.get()), memory->data());
    EXPECT_EQ(memory.use_count(), 2);
    EXPECT_THROW(kxGetMutableData(array.get()), std::logic_error);
    array.reset();
    EXPECT_EQ(memory.use_count(), 2);
    std::thread([&] { copy.reset(); }).join();
    EXPECT_EQ(memory.use_count(), 1);
  }
}

TEST(ValuesTest, NumericValuesAreSharedAndDroppedByThreads) {
  const Value array = column({1, 2, 3, 4});
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&array] {
      for (int round = 0; round < 2'000; ++round) {
        const Value copy = matrix::sharedCopy(array.get());
        const Value text = matrix::createChars(u"some text that is longer than a header");
        EXPECT_EQ(static_cast<const double*>(kxGetData(copy.get()))[3], 4);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST(ValuesTest, CountsThatCannotBeAreRefused) {
  constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max() / 2;
  EXPECT_ANY_THROW(numeric({kHuge, 2}, kxDOUBLE_CLASS));
  EXPECT_ANY_THROW(numeric({kHuge, kHuge, 2}, kxUINT8_CLASS));
  EXPECT_ANY_THROW(from_kalvex(kxCreateCellMatrix(kHuge, 2)));
  EXPECT_ANY_THROW(Torvane::String::createStringArray(kHuge, 4));
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they end the process
  const host::Ledger before = host::ledger();
  EXPECT_THROW(numeric({std::size_t{1} << 59, 1}, kxDOUBLE_CLASS), std::bad_alloc);
  EXPECT_EQ(host::ledger().arrays, before.arrays);
  EXPECT_EQ(host::ledger().payloads, before.payloads);
#endif
}

TEST(ValuesTest, TextsAreRowsOfUtf16) {
  for (const char* text : {"a", "text", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"}) {
    const Value chars = host::makeChars(text);
    EXPECT_EQ(kxGetM(chars.get()), 1u);
    EXPECT_EQ(host::toText(chars.get()), text);
    EXPECT_EQ(host::toText(host::makeString(text).get()), text);
  }
  const Value empty = host::makeChars("");
  EXPECT_EQ(kxGetM(empty.get()), 0u);
  EXPECT_EQ(kxGetN(empty.get()), 0u);
  EXPECT_EQ(host::toText(empty.get()), "");
}

TEST(ValuesTest, InvalidUnicodeBecomesTheReplacementCharacter) {
  const std::pair<const char*, std::u16string> rows[] = {
      {"\xFFz", u"\uFFFDz"},         {"\xC3", u"\uFFFD"},
      {"\xC0\xAF", u"\uFFFD\uFFFD"}, {"\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
      {"\xE2\x82", u"\uFFFD\uFFFD"}, {"\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"a\xC3\xA4", u"a\u00E4"},     {"\xF0\x9F\x98\x80", u"\U0001F600"},
  };
  for (const auto& [utf8, utf16] : rows) {
    EXPECT_EQ(fl::i18n::to_ustring(utf8), utf16);
  }
  const char16_t lonely[] = {0xD800, u'x', 0xDC00};
  EXPECT_EQ(fl::i18n::to_string({lonely, 3}), "\xEF\xBF\xBDx\xEF\xBF\xBD");
}

TEST(ValuesTest, StringsCanBeMissing) {
  Value array = Torvane::String::createStringArray(2, 1);
  Torvane::String::setString(array.get(), 0, u"here");
  EXPECT_TRUE(Torvane::String::isString(array.get()));
  EXPECT_EQ(Torvane::String::getString(array.get(), 0), u"here");
  EXPECT_EQ(Torvane::String::getString(array.get(), 1), std::nullopt);
  EXPECT_ANY_THROW(Torvane::String::convertStringsToChars(array.get()));
  EXPECT_ANY_THROW(host::toTexts(array.get()));
  Torvane::String::setString(array.get(), 1, u"");
  const Value cell = Torvane::String::convertStringsToChars(array.get());
  EXPECT_EQ(host::toText(kxGetCell(cell.get(), 0)), "here");
  EXPECT_TRUE(kxIsEmpty(kxGetCell(cell.get(), 1)));
  EXPECT_EQ(host::toTexts(cell.get()), (std::vector<std::string>{"here", ""}));
}

TEST(ValuesTest, CellsAndStructuresLendTheirElements) {
  std::vector<Value> elements;
  elements.push_back(host::makeDouble(1));
  elements.push_back(nullptr);
  const Value shared = column({1, 2});
  elements.push_back(matrix::sharedCopy(shared.get()));
  const Value cell = host::makeCell(std::move(elements));
  EXPECT_EQ(kxGetN(cell.get()), 3u);
  EXPECT_EQ(kxGetCell(cell.get(), 1), nullptr);
  EXPECT_TRUE(kxIsSameValue(kxGetCell(cell.get(), 2), shared.get()));

  const std::string_view fields[] = {"file", "line"};
  Value frames = from_kalvex(kxCreateStructMatrix(2, 1, fields));
  kxSetField(frames.get(), 1, "line", kxCreateDoubleScalar(12));
  EXPECT_EQ(kxGetNumberOfFields(frames.get()), 2u);
  EXPECT_EQ(kxGetFieldName(frames.get(), 1), "line");
  EXPECT_EQ(kxGetScalar(kxGetField(frames.get(), 1, "line")), 12);
  EXPECT_EQ(kxGetField(frames.get(), 0, "line"), nullptr);
  EXPECT_EQ(kxGetField(frames.get(), 0, "other"), nullptr);
  EXPECT_THROW(kxSetField(frames.get(), 0, "other", kxCreateDoubleScalar(1)), std::logic_error);
}

TEST(ValuesTest, ReadersRefuseWhatTheyDoNotTake) {
  const double kNaN = std::nan("");
  EXPECT_EQ(host::toDouble(host::makeLogical(true).get()), 1);
  EXPECT_TRUE(host::toLogical(host::makeDouble(kNaN).get()));
  EXPECT_ANY_THROW(host::toDouble(column({}).get()));
  EXPECT_ANY_THROW(host::toDouble(nullptr));
  EXPECT_ANY_THROW(host::toDouble(host::makeChars("1").get()));
  EXPECT_EQ(host::toCount(host::makeDouble(3).get(), 3), 3u);
  for (const double refused : {-1.0, 0.5, kNaN, 4.0, 1e30, HUGE_VAL}) {
    EXPECT_ANY_THROW(host::toCount(host::makeDouble(refused).get(), 3)) << refused;
  }
}

TEST(ValuesTest, FunctionHandlesAreNamesOrCallables) {
  EXPECT_EQ(host::functionName(host::makeFunctionHandle("plus").get()), "plus");
  const Value callable = host::makeFunctionHandle("f", [](const host::Call&) {});
  EXPECT_EQ(host::functionName(callable.get()), "");
  EXPECT_EQ(kxGetClassName(callable.get()), "function_handle");
  EXPECT_TRUE(kxHasRootRecord(callable.get()));
}

TEST(InternedTest, EqualTextsHaveOneIdInAllThreads) {
  constexpr std::size_t kNames = 20'000;
  const auto internAll = [](std::vector<kcos::COSInternedBase>& ids) {
    for (std::size_t i = 0; i < kNames; ++i) {
      ids.push_back(
          kcos::internal::makeInterned(kcos::NameRef::of("interned " + std::to_string(i))));
    }
  };
  std::vector<kcos::COSInternedBase> here;
  std::vector<kcos::COSInternedBase> there;
  std::thread other(internAll, std::ref(there));
  internAll(here);
  other.join();
  EXPECT_EQ(here, there);
  EXPECT_EQ(here[123].text(), "interned 123");
  EXPECT_NE(here[123], here[124]);
  EXPECT_EQ(kcos::internal::makeInterned("interned 123"), here[123]);
  EXPECT_TRUE(kcos::internal::makeInterned("").empty());
}

}  // namespace
}  // namespace kv::test
