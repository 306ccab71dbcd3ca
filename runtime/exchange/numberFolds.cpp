// Sums, from which mean, any and all have their answers, counts, and moments. A sum of floating
// values carries its rounding error, one of integers is exact in 128 bits.

#include <fmt/format.h>

#include <cmath>
#include <concepts>
#include <string>

#include "aggregate/partialWords.h"
#include "aggregate/reductionValues.h"
#include "column/TextView.h"
#include "exchange/StateFold.h"
#include "exchange/folds.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

struct FloatSum : CompensatedSum {
  void add(double value) {
    addExactly(sum, error, value);
    ++count;
  }
};

/// A sum in 128 bits, by halves so that states have no gaps.
struct WholeSum {
  std::uint64_t low = 0;
  std::int64_t high = 0;
  std::int64_t count = 0;

  WideInteger value() const {
    return static_cast<WideInteger>(high) * (WideInteger{1} << 64) + static_cast<WideInteger>(low);
  }
  void add(WideInteger value) {
    const WideInteger sum = this->value() + value;
    low = static_cast<std::uint64_t>(sum);
    high = static_cast<std::int64_t>(sum >> 64);
    ++count;
  }
  void merge(const WholeSum& later) {
    add(later.value());
    count += later.count - 1;
  }
};

struct MomentState : Moments {
  void add(double value) { merge(Moments{value, 0, 1}); }
};

struct CountState {
  std::int64_t count = 0;
  void merge(const CountState& later) { count += later.count; }
};

/// A sum of integers in its type; it never wraps.
template <class T>
T exact(WideInteger sum, ElementType type) {
  using Limits = std::numeric_limits<T>;
  if (sum >= WideInteger{Limits::min()} && sum <= WideInteger{Limits::max()}) {
    return static_cast<T>(sum);
  }
  errors::raiseStep("KALVEX:function:Overflow",
                    {"sum", fmt::format("{}", sum), std::string(elementTypeName(type))});
}

class FloatSumFold : public StateFold<FloatSum> {
 public:
  FloatSumFold(MissingRule rule, ElementType type, bool isMean)
      : StateFold(rule == MissingRule::Propagate), type_(type), isMean_(isMean) {}

  void add(std::span<const std::uint32_t> groups, const Column& rows) final {
    visitNumeric(rows.type(), [&]<class T>() {
      const T* values = rows.values<T>().data();
      addRows<T>(groups, rows, [values](FloatSum& state, std::size_t row) {
        state.add(static_cast<double>(values[row]));
      });
    });
  }

  Column answers() const final {
    return floatingAnswers(
        type_, size(),
        [&](std::size_t group) {
          const FloatSum& state = at(group);
          return isMean_ ? state.value() / static_cast<double>(state.count) : state.value();
        },
        [&](std::size_t group) { return isPoisoned(group); });
  }

 private:
  ElementType type_;
  bool isMean_;
};

class WholeSumFold : public StateFold<WholeSum> {
 public:
  /// What is made of the sums.
  using Answer = Column (WholeSumFold::*)() const;

  WholeSumFold(MissingRule rule, ElementType type, Answer answer)
      : StateFold(rule == MissingRule::Propagate), type_(type), answer_(answer) {}

  void add(std::span<const std::uint32_t> groups, const Column& rows) final {
    visitNumeric(rows.type(), [&]<class T>() {
      const T* values = rows.values<T>().data();
      addRows<T>(groups, rows, [values](WholeSum& state, std::size_t row) {
        state.add(static_cast<WideInteger>(values[row]));
      });
    });
  }

  Column answers() const final { return (this->*answer_)(); }

  Column sums() const {
    const auto typed = [&]<class T>(ElementType type) {
      return answerColumn<T>(
          type, size(), [&](std::size_t group) { return exact<T>(at(group).value(), type); },
          [&](std::size_t group) { return isPoisoned(group); });
    };
    const bool isUnsigned = isInteger(type_) && !isSigned(type_);
    return isUnsigned ? typed.template operator()<std::uint64_t>(ElementType::UInt64)
                      : typed.template operator()<std::int64_t>(isTime(type_) ? type_
                                                                              : ElementType::Int64);
  }

  Column means() const {
    if (type_ == ElementType::Duration) {
      return answerColumn<std::int64_t>(
          type_, size(),
          [&](std::size_t group) {
            return static_cast<std::int64_t>(at(group).value() / at(group).count);
          },
          [&](std::size_t group) { return isPoisoned(group) || at(group).count == 0; });
    }
    return floatingAnswers(
        ElementType::Double, size(),
        [&](std::size_t group) {
          return static_cast<double>(at(group).value()) / static_cast<double>(at(group).count);
        },
        [&](std::size_t group) { return isPoisoned(group); });
  }

  Column anys() const {
    return truths([](const WholeSum& sum) { return sum.value() > 0; });
  }

  Column alls() const {
    return truths([](const WholeSum& sum) { return sum.value() == sum.count; });
  }

 private:
  template <class IsTrue>
  Column truths(const IsTrue& isTrue) const {
    return answerColumn<std::uint8_t>(
        ElementType::Logical, size(),
        [&](std::size_t group) { return std::uint8_t{isTrue(at(group))}; },
        [&](std::size_t group) { return isPoisoned(group); });
  }

  ElementType type_;
  Answer answer_;
};

class MomentFold : public StateFold<MomentState> {
 public:
  MomentFold(MissingRule rule, ElementType type, int lost, bool takesRoot)
      : StateFold(rule == MissingRule::Propagate),
        type_(type),
        lost_(lost),
        takesRoot_(takesRoot) {}

  void add(std::span<const std::uint32_t> groups, const Column& rows) final {
    visitNumeric(rows.type(), [&]<class T>() {
      const T* values = rows.values<T>().data();
      addRows<T>(groups, rows, [values](MomentState& state, std::size_t row) {
        state.add(static_cast<double>(values[row]));
      });
    });
  }

  Column answers() const final {
    const ElementType type = type_ == ElementType::Single ? type_ : ElementType::Double;
    return floatingAnswers(
        type, size(),
        [&](std::size_t group) {
          const double variance = at(group).squares / static_cast<double>(at(group).count - lost_);
          return takesRoot_ ? std::sqrt(variance) : variance;
        },
        [&](std::size_t group) { return isPoisoned(group) || at(group).count <= lost_; });
  }

 private:
  ElementType type_;
  int lost_;
  bool takesRoot_;
};

/// Counts the values that aren't missing, or all rows.
class CountFold : public StateFold<CountState> {
 public:
  explicit CountFold(bool countsRows) : StateFold(false), countsRows_(countsRows) {}

  void add(std::span<const std::uint32_t> groups, const Column& rows) final {
    if (countsRows_) {
      for (const std::uint32_t group : groups) {
        ++at(group).count;
      }
    } else if (rows.type() == ElementType::String) {
      const TextView texts(rows);
      for (std::size_t row = 0; row < groups.size(); ++row) {
        at(groups[row]).count += texts.isMissing(static_cast<std::int64_t>(row)) ? 0 : 1;
      }
    } else {
      visitNumeric(rows.type(), [&]<class T>() {
        addRows<T>(groups, rows, [](CountState& state, std::size_t) { ++state.count; });
      });
    }
  }

  Column answers() const final {
    return answerColumn<std::int64_t>(
        ElementType::Int64, size(), [&](std::size_t group) { return at(group).count; },
        [](std::size_t) { return false; });
  }

 private:
  bool countsRows_;
};

}  // namespace

std::unique_ptr<GroupFold> makeSumFold(MissingRule rule, ElementType type) {
  if (isFloating(type)) {
    return std::make_unique<FloatSumFold>(rule, type, false);
  }
  return std::make_unique<WholeSumFold>(rule, type, &WholeSumFold::sums);
}

std::unique_ptr<GroupFold> makeMeanFold(MissingRule rule, ElementType type) {
  if (isFloating(type)) {
    return std::make_unique<FloatSumFold>(rule, type, true);
  }
  return std::make_unique<WholeSumFold>(rule, type, &WholeSumFold::means);
}

std::unique_ptr<GroupFold> makeAnyFold(MissingRule rule, ElementType type) {
  return std::make_unique<WholeSumFold>(rule, type, &WholeSumFold::anys);
}

std::unique_ptr<GroupFold> makeAllFold(MissingRule rule, ElementType type) {
  return std::make_unique<WholeSumFold>(rule, type, &WholeSumFold::alls);
}

std::unique_ptr<GroupFold> makeCountFold(MissingRule /*rule*/, ElementType /*type*/) {
  return std::make_unique<CountFold>(false);
}

std::unique_ptr<GroupFold> makeSizeFold(MissingRule /*rule*/, ElementType /*type*/) {
  return std::make_unique<CountFold>(true);
}

std::unique_ptr<GroupFold> makeMomentFold(MissingRule rule, ElementType type, int lost,
                                          bool takesRoot) {
  return std::make_unique<MomentFold>(rule, type, lost, takesRoot);
}

}  // namespace kv::runtime
