#include <array>
#include <limits>
#include <memory>

#include "classes/classes.h"
#include "classes/definitionHelpers.h"
#include "classes/sessionValues.h"
#include "column/elementTypes.h"
#include "kv/runtime/functionNames.h"
#include "random/Philox.h"
#include "values/hostNames.h"

namespace kv::runtime {

namespace {

using host::Call;
using host::Value;

constexpr char kRandStream[] = "RandStream";

/// Seeds are whole numbers that a double holds exactly.
constexpr std::size_t kMaxSeed = static_cast<std::size_t>(kMaxExactWhole) - 1;

struct StreamValue final : host::NativeValue {
  explicit StreamValue(PhiloxStream value) : stream(value) {}

  PhiloxStream stream;
};

PhiloxStream& streamOf(const kxArray* object) {
  return host::nativeValue<StreamValue>(object, "scalar RandStream").stream;
}

/// RandStream(seed, partition): both default to 0.
void constructStream(const Call& call) {
  const std::size_t seed = call.nrhs > 1 ? host::toCount(call.in(1), kMaxSeed) : 0;
  const std::size_t partition = call.nrhs > 2 ? host::toCount(call.in(2), kMaxSeed) : 0;
  host::setSlot(call.in(0), "Seed", host::makeDouble(static_cast<double>(seed)));
  host::setSlot(call.in(0), "Partition", host::makeDouble(static_cast<double>(partition)));
  host::setNativeValue(call.in(0), std::make_unique<StreamValue>(PhiloxStream(seed, partition)));
}

/// The position of a stream is saved, so that it continues from there.
Value savedStream(const kxArray* stream) {
  Value drawn =
      matrix::from_kalvex(kxCreateNumericArray(std::array<std::size_t, 2>{1, 1}, kxUINT64_CLASS));
  *static_cast<std::uint64_t*>(kxGetMutableData(drawn.get())) = streamOf(stream).drawn();
  return drawn;
}

void restoreStream(const kxArray* stream, const kxArray* saved) {
  const std::size_t seed = host::toCount(host::getSlot(stream, "Seed").get(), kMaxSeed);
  const std::size_t partition = host::toCount(host::getSlot(stream, "Partition").get(), kMaxSeed);
  if (kxGetClassID(saved) != kxUINT64_CLASS || !kxIsScalar(saved)) {
    host::raiseInvalidType("Input", "scalar uint64", saved);
  }
  const std::uint64_t drawn = *static_cast<const std::uint64_t*>(kxGetData(saved));
  host::setNativeValue(stream, std::make_unique<StreamValue>(PhiloxStream(seed, partition, drawn)));
}

const kxArray* globalStream() {
  RuntimeState& state = runtimeState();
  if (state.globalStream == nullptr) {
    state.globalStream = host::call(kRandStream);
  }
  return state.globalStream.get();
}

void getGlobalStream(const Call& call) { call.out(0, matrix::sharedCopy(globalStream())); }

void setGlobalStream(const Call& call) {
  streamOf(call.in(0));
  runtimeState().globalStream = matrix::sharedCopy(call.in(0));
}

/// `rows`-by-`columns` numbers, column by column.
Value drawUniform(PhiloxStream& stream, const kxArray* rows, const kxArray* columns) {
  constexpr std::size_t kMaxCount = std::numeric_limits<std::uint32_t>::max();
  const std::array<std::size_t, 2> dimensions{
      host::toCount(rows, kMaxCount), columns == nullptr ? 1 : host::toCount(columns, kMaxCount)};
  Value numbers = matrix::from_kalvex(kxCreateNumericArray(dimensions, kxDOUBLE_CLASS));
  auto* data = static_cast<double*>(kxGetMutableData(numbers.get()));
  for (std::size_t i = 0; i < kxGetNumberOfElements(numbers.get()); ++i) {
    data[i] = stream.nextUniform();
  }
  return numbers;
}

/// rand(stream, rows, columns)
void drawFromStream(const Call& call) {
  call.out(0, drawUniform(streamOf(call.in(0)), call.in(1), call.in(2)));
}

/// rand(rows, columns): from the session's stream.
void drawFromGlobal(const Call& call) {
  call.expect(1, 1, 2);
  call.out(0, drawUniform(streamOf(globalStream()), call.in(0), call.in(1)));
}

/// kv.random.rows(column): one number per row of the input, from the session's stream.
void drawForRows(const Call& call) {
  call.expect(1, 1, 1);
  const Value rows = host::makeDouble(static_cast<double>(kxGetM(call.in(0))));
  call.out(0, drawUniform(streamOf(globalStream()), rows.get(), nullptr));
}

/// RandStreamFactory(seed): without a seed, one is drawn from the session's stream, so that no two
/// operations share numbers.
void constructRandomFactory(const Call& call) {
  const std::size_t seed = call.nrhs > 1 ? host::toCount(call.in(1), kMaxSeed)
                                         : streamOf(globalStream()).nextBits() & kMaxSeed;
  host::setSlot(call.in(0), "Seed", host::makeDouble(static_cast<double>(seed)));
}

/// getRandStreamForPartition(factory, partition): always from its beginning.
void getStreamForPartition(const Call& call) {
  const Value seed = host::getSlot(call.in(0), "Seed");
  call.out(0, host::call(kRandStream, {seed.get(), call.in(1)}));
}

}  // namespace

void defineRandom(host::Session& session) {
  define(session, {.name = kRandStream,
                   .properties = {readOnly("Seed"), readOnly("Partition")},
                   .constructor = constructor(constructStream, 1, 3),
                   .methods = {staticMethod("getGlobalStream", getGlobalStream, 0, 0),
                               staticMethod("setGlobalStream", setGlobalStream, 1, 1),
                               method("rand", drawFromStream, 2, 3)},
                   .savedForm = host::SavedForm{savedStream, restoreStream}});
  define(session, {.name = kRandStreamFactory,
                   .properties = {readOnly("Seed")},
                   .constructor = constructor(constructRandomFactory, 1, 2),
                   .methods = {method("getRandStreamForPartition", getStreamForPartition, 2, 2)}});
  session.defineFunction("rand", drawFromGlobal);
  session.defineFunction(kRandomRowsFunction, drawForRows);
}

}  // namespace kv::runtime
