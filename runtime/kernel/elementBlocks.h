#pragma once

#include "kv/runtime/ElementFunctions.h"

namespace kv::runtime {

// The block functions of the table of element functions, named after their rows.

// arithmeticBlocks.cpp
extern const BlockTable kPlusBlocks;
extern const BlockTable kMinusBlocks;
extern const BlockTable kTimesBlocks;
extern const BlockTable kRdivideBlocks;
extern const BlockTable kPowerBlocks;
extern const BlockTable kModBlocks;
extern const BlockTable kUminusBlocks;
extern const BlockTable kMinimumBlocks;
extern const BlockTable kMaximumBlocks;

// comparisonBlocks.cpp
extern const BlockTable kEqBlocks;
extern const BlockTable kNeBlocks;
extern const BlockTable kDiffersBlocks;
extern const BlockTable kLtBlocks;
extern const BlockTable kLeBlocks;
extern const BlockTable kGtBlocks;
extern const BlockTable kGeBlocks;
extern const BlockTable kAndBlocks;
extern const BlockTable kOrBlocks;
extern const BlockTable kXorBlocks;
extern const BlockTable kNotBlocks;

// mathBlocks.cpp
extern const BlockTable kAbsBlocks;
extern const BlockTable kSignBlocks;
extern const BlockTable kSqrtBlocks;
extern const BlockTable kExpBlocks;
extern const BlockTable kLogBlocks;
extern const BlockTable kLog2Blocks;
extern const BlockTable kLog10Blocks;
extern const BlockTable kSinBlocks;
extern const BlockTable kCosBlocks;
extern const BlockTable kTanBlocks;
extern const BlockTable kFloorBlocks;
extern const BlockTable kCeilBlocks;
extern const BlockTable kRoundBlocks;
extern const BlockTable kIsnanBlocks;
extern const BlockTable kIsfiniteBlocks;

// textFunctions.cpp: compare by the order of UTF-8 bytes; false if a text is missing, except for
// textDiffers.
void textEq(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output);
void textNe(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output);
void textDiffers(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output);
void textLt(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output);
void textLe(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output);
void textGt(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output);
void textGe(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output);
void textIsMissing(std::span<const ColumnOperand> inputs, std::int64_t rows, std::uint8_t* output);

}  // namespace kv::runtime
