// Functions whose result is one of the values of a group: the smallest, largest, first or last.
// Where missing values propagate, the first and last are those of all rows, missing or not;
// otherwise of the values that aren't missing.

#include <concepts>

#include "exchange/StateFold.h"
#include "exchange/folds.h"

namespace kv::runtime {

namespace {

enum : std::uint64_t { kNone, kValue, kMissingValue };

/// A value, widened so that states have no gaps.
template <class Wide, Pick pick>
struct Picked {
  Wide value{};
  std::uint64_t what = kNone;

  void merge(const Picked& later) {
    if (later.what != kNone && (what == kNone || takes(later.value))) {
      *this = later;
    }
  }

 private:
  bool takes(Wide other) const {
    if constexpr (pick == Pick::Min) {
      return other < value;
    } else if constexpr (pick == Pick::Max) {
      return other > value;
    } else {
      return pick == Pick::Last;
    }
  }
};

template <class T>
using Widened =
    std::conditional_t<std::floating_point<T>, double,
                       std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>;

template <class T, Pick pick>
class PickFold final : public StateFold<Picked<Widened<T>, pick>> {
  using State = Picked<Widened<T>, pick>;
  using Base = StateFold<State>;
  static constexpr bool kIsExtreme = pick == Pick::Min || pick == Pick::Max;

 public:
  PickFold(MissingRule rule, ElementType type)
      : Base(kIsExtreme && rule == MissingRule::Propagate),
        type_(type),
        picksMissing_(!kIsExtreme && rule == MissingRule::Propagate) {}

  void add(std::span<const std::uint32_t> groups, const Column& rows) override {
    const T* values = rows.values<T>().data();
    const auto take = [values](State& state, std::size_t row) {
      state.merge({static_cast<Widened<T>>(values[row]), kValue});
    };
    if (!picksMissing_) {
      this->template addRows<T>(groups, rows, take);
      return;
    }
    forRows<T>(rows, [&](std::size_t row, bool isMissing) {
      State& state = this->at(groups[row]);
      if (isMissing) {
        state.merge({{}, kMissingValue});
      } else {
        take(state, row);
      }
    });
  }

  Column answers() const override {
    return answerColumn<T>(
        type_, this->size(),
        [&](std::size_t group) { return static_cast<T>(this->at(group).value + Widened<T>{}); },
        [&](std::size_t group) {
          return this->isPoisoned(group) || this->at(group).what != kValue;
        });
  }

 private:
  ElementType type_;
  bool picksMissing_;
};

}  // namespace

template <Pick pick>
std::unique_ptr<GroupFold> makePickFold(MissingRule rule, ElementType type) {
  if (type == ElementType::String) {
    return makeTextPickFold<pick>(rule);
  }
  return visitNumeric(type, [&]<class T>() -> std::unique_ptr<GroupFold> {
    return std::make_unique<PickFold<T, pick>>(rule, type);
  });
}

template std::unique_ptr<GroupFold> makePickFold<Pick::Min>(MissingRule, ElementType);
template std::unique_ptr<GroupFold> makePickFold<Pick::Max>(MissingRule, ElementType);
template std::unique_ptr<GroupFold> makePickFold<Pick::First>(MissingRule, ElementType);
template std::unique_ptr<GroupFold> makePickFold<Pick::Last>(MissingRule, ElementType);

}  // namespace kv::runtime
