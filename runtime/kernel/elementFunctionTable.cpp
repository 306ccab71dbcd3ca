#include <algorithm>

#include "kernel/elementBlocks.h"
#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

namespace {

using enum TypeRule;

// clang-format off
constexpr ElementFunction kElementFunctions[] = {
    // name     symbol arity rule        blocks            text             summary
    {"plus",     "+",  2, Promoted,   &kPlusBlocks,     nullptr,         "sum of two; for logicals, or"},
    {"minus",    "-",  2, Promoted,   &kMinusBlocks,    nullptr,         "difference of two"},
    {"times",    "*",  2, Promoted,   &kTimesBlocks,    nullptr,         "product of two; for logicals, and"},
    {"rdivide",  "/",  2, Quotient,   &kRdivideBlocks,  nullptr,         "quotient of two, in floating point"},
    {"power",    "^",  2, Power,      &kPowerBlocks,    nullptr,         "the first to the power of the second"},
    {"mod",      "%",  2, Counting,   &kModBlocks,      nullptr,         "remainder with the sign of the divisor"},
    {"uminus",   "-",  1, Promoted,   &kUminusBlocks,   nullptr,         "negative"},
    {"eq",       "==", 2, Comparison, &kEqBlocks,       &textEq,         "equal"},
    {"ne",       "!=", 2, Comparison, &kNeBlocks,       &textNe,         "not equal; false with a missing value"},
    {"differs",  "",   2, Comparison, &kDiffersBlocks,  &textDiffers,    "not equal; true with NaN or a missing text"},
    {"lt",       "<",  2, Comparison, &kLtBlocks,       &textLt,         "less than"},
    {"le",       "<=", 2, Comparison, &kLeBlocks,       &textLe,         "less than or equal"},
    {"gt",       ">",  2, Comparison, &kGtBlocks,       &textGt,         "greater than"},
    {"ge",       ">=", 2, Comparison, &kGeBlocks,       &textGe,         "greater than or equal"},
    {"and",      "&",  2, Truth,      &kAndBlocks,      nullptr,         "true if both are true", Deciding::False},
    {"or",       "|",  2, Truth,      &kOrBlocks,       nullptr,         "true if at least one is true", Deciding::True},
    {"xor",      "",   2, Truth,      &kXorBlocks,      nullptr,         "true if exactly one is true"},
    {"not",      "!",  1, Truth,      &kNotBlocks,      nullptr,         "true if the input is false"},
    {"abs",      "",   1, Promoted,   &kAbsBlocks,      nullptr,         "absolute value"},
    {"sign",     "",   1, Promoted,   &kSignBlocks,     nullptr,         "-1, 0 or 1"},
    {"sqrt",     "",   1, Floating,   &kSqrtBlocks,     nullptr,         "square root"},
    {"exp",      "",   1, Floating,   &kExpBlocks,      nullptr,         "exponential"},
    {"log",      "",   1, Floating,   &kLogBlocks,      nullptr,         "natural logarithm"},
    {"log2",     "",   1, Floating,   &kLog2Blocks,     nullptr,         "logarithm to base 2"},
    {"log10",    "",   1, Floating,   &kLog10Blocks,    nullptr,         "logarithm to base 10"},
    {"sin",      "",   1, Floating,   &kSinBlocks,      nullptr,         "sine of radians"},
    {"cos",      "",   1, Floating,   &kCosBlocks,      nullptr,         "cosine of radians"},
    {"tan",      "",   1, Floating,   &kTanBlocks,      nullptr,         "tangent of radians"},
    {"floor",    "",   1, Promoted,   &kFloorBlocks,    nullptr,         "largest whole number that isn't larger"},
    {"ceil",     "",   1, Promoted,   &kCeilBlocks,     nullptr,         "smallest whole number that isn't smaller"},
    {"round",    "",   1, Promoted,   &kRoundBlocks,    nullptr,         "nearest whole number, halves to even"},
    {"isnan",    "",   1, Class,      &kIsnanBlocks,    &textIsMissing,  "true if it is NaN or a missing text"},
    {"ismissing","",   1, Class,      &kIsnanBlocks,    &textIsMissing,  "the same as isnan"},
    {"isfinite", "",   1, Class,      &kIsfiniteBlocks, nullptr,         "true if it is neither NaN nor infinite"},
    {"minimum",  "",   2, Promoted,   &kMinimumBlocks,  nullptr,         "smaller of two; NaN if either is NaN"},
    {"maximum",  "",   2, Promoted,   &kMaximumBlocks,  nullptr,         "larger of two; NaN if either is NaN"},
    {"where",    "",   3, Choice,     nullptr,          nullptr,         "the second where the first is true, otherwise the third"},
};
// clang-format on

}  // namespace

std::span<const ElementFunction> elementFunctions() { return kElementFunctions; }

const ElementFunction* findElementFunction(std::string_view name) {
  const auto* found = std::ranges::find(kElementFunctions, name, &ElementFunction::name);
  return found == std::end(kElementFunctions) ? nullptr : found;
}

}  // namespace kv::runtime
