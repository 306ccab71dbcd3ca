#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "kv/host/values.h"
#include "kv/runtime/Chunk.h"
#include "operator/OpSpec.h"
#include "operator/OutputTypes.h"

/// Users' functions that take a limited number of rows at a time.
namespace kv::runtime {

/// An input of a function: rows, which are sliced, or a value that each call gets as it is.
struct CallInput {
  std::optional<Chunk> rows;  ///< an array
  const kxArray* value = nullptr;
};

/// The most rows that the function of a FunctionHandle takes at a time: its MaxNumSlices, rounded
/// down; the largest count where there is no bound, or where a factory of a user's class takes
/// its place.
///
/// Errors: "KALVEX:array:MaxNumSlices" with the label of `spec` and the bound, if that is below 1.
std::int64_t maxRowsOf(const OpSpec& spec, const kxArray* functionHandle);

/// What a function returned as output `output` of `spec` for these rows.
///
/// `value`: null if it returned nothing.
/// Errors: "KALVEX:array:MissingOutput"; those of OutputTypes.
Chunk takeResult(const OpSpec& spec, std::size_t output, const kxArray* value, const Chunk& rows,
                 OutputTypes& types);

/// Calls the function of a FunctionHandle on the rows of the inputs, as many at a time as it takes,
/// in order, and joins what it gives, output by output.
///
/// `rows` says which rows the inputs are; `types` takes in the types of what the calls return.
/// Requires: inputs of rows have as many as `rows`.
/// Errors: what the function raises; "KALVEX:array:MissingOutput"; those of `maxRowsOf` and of
///         OutputTypes.
std::vector<Chunk> callInSlices(const OpSpec& spec, const kxArray* functionHandle,
                                std::span<const CallInput> inputs, const Chunk& rows,
                                OutputTypes& types);

/// The same with `maxRows` rows at a time.
/// Requires: maxRows >= 1.
std::vector<Chunk> callInSlices(const OpSpec& spec, const kxArray* functionHandle,
                                std::span<const CallInput> inputs, const Chunk& rows,
                                OutputTypes& types, std::int64_t maxRows);

}  // namespace kv::runtime
