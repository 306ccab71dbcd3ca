#include "operator/UserFunctions.h"

#include <stdexcept>

namespace kv::runtime {

namespace {

[[noreturn]] void refuse() { throw std::logic_error("a step has called a function that it lacks"); }

}  // namespace

std::vector<Chunk> UserFunctions::call(std::size_t /*step*/, const Chunk& /*rows*/,
                                       std::span<const FunctionInput> /*inputs*/,
                                       OutputTypes& /*types*/) {
  refuse();
}

PartitionResults UserFunctions::callPartition(std::size_t /*step*/, const Chunk& /*rows*/,
                                              std::span<const FunctionInput> /*inputs*/,
                                              const PartitionPlace& /*place*/,
                                              bool /*returnsUnused*/, OutputTypes& /*types*/) {
  refuse();
}

ReducedValues UserFunctions::reduce(std::size_t /*step*/, std::span<const Chunk> /*partials*/) {
  refuse();
}

std::vector<Chunk> UserFunctions::partialsOf(std::size_t /*step*/,
                                             const ReducedValues& /*reduced*/) {
  refuse();
}

}  // namespace kv::runtime
