#pragma once

#include <gmock/gmock.h>

#include <span>
#include <vector>

#include "operator/UserFunctions.h"

namespace kv::runtime::test {

/// For stages without users' functions; a call is a failure where a test makes it one.
class NoFunctions final : public UserFunctions {
 public:
  MOCK_METHOD(std::vector<Chunk>, call,
              (std::size_t, const Chunk&, std::span<const FunctionInput>, OutputTypes&),
              (override));
  MOCK_METHOD(PartitionResults, callPartition,
              (std::size_t, const Chunk&, std::span<const FunctionInput>, const PartitionPlace&,
               bool, OutputTypes&),
              (override));
  MOCK_METHOD(ReducedValues, reduce, (std::size_t, std::span<const Chunk>), (override));
  MOCK_METHOD(std::vector<Chunk>, partialsOf, (std::size_t, const ReducedValues&), (override));
};

}  // namespace kv::runtime::test
