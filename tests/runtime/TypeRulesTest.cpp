#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "column/elementTypes.h"
#include "kv/errors/StepError.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

namespace {

using enum ElementType;

constexpr ElementType L = Logical, D = Double, S = Single, i1 = Int8, u1 = UInt8, i2 = Int16,
                      u2 = UInt16, i4 = Int32, u4 = UInt32, i8 = Int64, u8 = UInt64;

TEST(TypeRules, PromotionIsNumpys) {
  // Rows and columns in the order of ElementType.
  constexpr ElementType kPromotions[kNumericTypes][kNumericTypes] = {
      {L, D, S, i1, u1, i2, u2, i4, u4, i8, u8},   //
      {D, D, D, D, D, D, D, D, D, D, D},           //
      {S, D, S, S, S, S, S, D, D, D, D},           //
      {i1, D, S, i1, i2, i2, i4, i4, i8, i8, D},   //
      {u1, D, S, i2, u1, i2, u2, i4, u4, i8, u8},  //
      {i2, D, S, i2, i2, i2, i4, i4, i8, i8, D},   //
      {u2, D, S, i4, u2, i4, u2, i4, u4, i8, u8},  //
      {i4, D, D, i4, i4, i4, i4, i4, i8, i8, D},   //
      {u4, D, D, i8, u4, i8, u4, i8, u4, i8, u8},  //
      {i8, D, D, i8, i8, i8, i8, i8, i8, i8, D},   //
      {u8, D, D, D, u8, D, u8, D, u8, D, u8},      //
  };
  for (std::size_t a = 0; a < kNumericTypes; ++a) {
    for (std::size_t b = 0; b < kNumericTypes; ++b) {
      const auto left = static_cast<ElementType>(a);
      const auto right = static_cast<ElementType>(b);
      EXPECT_EQ(promoteTypes(left, right), kPromotions[a][b])
          << elementTypeName(left) << " with " << elementTypeName(right);
    }
  }
}

std::string resultName(std::string_view function, const std::vector<OperandType>& types) {
  try {
    return std::string(elementTypeName(resolve(*findElementFunction(function), types).result));
  } catch (const errors::StepError& error) {
    return error.id();
  }
}

constexpr OperandType weak(ElementType type) { return {type, true}; }

TEST(TypeRules, ResultTypesOfFunctions) {
  const std::string kBad = "KALVEX:function:BadTypes";
  const struct {
    std::string_view function;
    std::vector<OperandType> inputs;
    std::string result;
  } kCases[] = {
      {"plus", {{L}, {L}}, "logical"},
      {"plus", {{u1}, {i1}}, "int16"},
      {"plus", {{i8}, {u8}}, "double"},
      {"minus", {{L}, {L}}, kBad},
      {"minus", {{L}, {i4}}, "int32"},
      {"times", {{L}, {S}}, "single"},
      {"rdivide", {{L}, {L}}, "double"},
      {"rdivide", {{i1}, {i1}}, "double"},
      {"rdivide", {{i2}, {S}}, "single"},
      {"rdivide", {{i4}, {S}}, "double"},
      {"power", {{L}, {L}}, "int8"},
      {"mod", {{L}, {L}}, "int8"},
      {"mod", {{u1}, {i1}}, "int16"},
      {"lt", {{i8}, {S}}, "logical"},
      {"and", {{D}, {i4}}, "logical"},
      {"uminus", {{L}}, kBad},
      {"sign", {{L}}, kBad},
      {"abs", {{L}}, "logical"},
      {"sqrt", {{L}}, "single"},
      {"sqrt", {{u2}}, "single"},
      {"sqrt", {{i4}}, "double"},
      {"floor", {{i4}}, "int32"},
      {"round", {{L}}, "logical"},
      {"isnan", {{i4}}, "logical"},
      {"isnan", {{String}}, "logical"},
      {"isfinite", {{String}}, kBad},
      {"eq", {{String}, {String}}, "logical"},
      {"eq", {{String}, {D}}, kBad},
      {"minus", {{String}, {D}}, kBad},
      {"plus", {{String}, {String}}, kBad},
      {"and", {{L}, {String}}, kBad},
      {"plus", {{D}}, "KALVEX:function:BadArity"},
      {"sqrt", {{D}, {D}}, "KALVEX:function:BadArity"},
      // Constants raise the kind of the result, not its width.
      {"times", {{S}, weak(D)}, "single"},
      {"times", {{i1}, weak(i8)}, "int8"},
      {"times", {weak(D), {i1}}, "double"},
      {"plus", {{u8}, weak(i8)}, "uint64"},
      {"plus", {{L}, weak(L)}, "logical"},
      {"plus", {{L}, weak(i8)}, "int64"},
      {"plus", {{L}, weak(D)}, "double"},
      {"rdivide", {{i1}, weak(i8)}, "double"},
      {"rdivide", {weak(i8), weak(i8)}, "double"},
      {"plus", {weak(i8), weak(i8)}, "int64"},
      {"or", {weak(L), weak(L)}, "logical"},
      // The condition of a choice doesn't affect the type.
      {"where", {{L}, {i1}, {u1}}, "int16"},
      {"where", {{L}, {L}, {L}}, "logical"},
      {"where", {{L}, {S}, weak(D)}, "single"},
      {"where", {weak(L), {i1}, weak(i8)}, "int8"},
      {"where", {{L}, weak(i8), weak(i8)}, "int64"},
      {"where", {{L}, {String}, {String}}, "string"},
      {"where", {{L}, {String}, {D}}, kBad},
      {"where", {{D}, {D}, {D}}, kBad},
      {"where", {{String}, {D}, {D}}, kBad},
      {"where", {{L}, {D}}, "KALVEX:function:BadArity"},
  };
  for (const auto& row : kCases) {
    std::string inputs;
    for (const auto& input : row.inputs) {
      inputs += " " + std::string(elementTypeName(input.type));
    }
    EXPECT_EQ(resultName(row.function, row.inputs), row.result) << row.function << inputs;
  }
}

TEST(TypeRules, AnErrorNamesTheFunctionAndTheTypes) {
  const OperandType types[] = {{String}, {Double}};
  try {
    resolve(*findElementFunction("minus"), types);
    FAIL() << "text minus number was accepted";
  } catch (const errors::StepError& error) {
    EXPECT_EQ(error.id(), "KALVEX:function:BadTypes");
    EXPECT_EQ(error.arguments(), (std::vector<std::string>{"minus", "string and double"}));
  }
}

TEST(ElementFunctionTable, RowsAreFoundByName) {
  for (const ElementFunction& row : elementFunctions()) {
    EXPECT_EQ(findElementFunction(row.name), &row) << row.name;
    EXPECT_FALSE(row.summary.empty()) << row.name;
  }
  EXPECT_EQ(findElementFunction("sinus"), nullptr);
}

}  // namespace
}  // namespace kv::runtime
