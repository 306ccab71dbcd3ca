// The smallest, largest, first or last text of each group. Texts are kept one after the other in
// one buffer; a text that is replaced stays there until half of the buffer is of no use.

#include <arrow/array/data.h>
#include <arrow/type.h>

#include <cassert>
#include <cstring>
#include <limits>
#include <string_view>

#include "column/TextView.h"
#include "exchange/StateFold.h"
#include "exchange/folds.h"
#include "kv/errors/StepError.h"

namespace kv::runtime {

namespace {

template <Pick pick>
class TextPickFold final : public GroupFold {
 public:
  explicit TextPickFold(MissingRule rule) : propagates_(rule == MissingRule::Propagate) {}

  void resize(std::int64_t groups) override { picked_.resize(static_cast<std::size_t>(groups)); }

  void add(std::span<const std::uint32_t> groups, const Column& rows) override {
    assert(std::ssize(groups) == rows.rows());
    const TextView texts(rows);
    for (std::size_t row = 0; row < groups.size(); ++row) {
      const auto at = static_cast<std::int64_t>(row);
      if (!texts.isMissing(at)) {
        take(picked_[groups[row]], What::Text, texts[at]);
      } else if (propagates_) {
        take(picked_[groups[row]], What::Missing, {});
      }
    }
    compact();
  }

  void merge(const GroupFold& laterFold, std::span<const std::uint32_t> groups) override {
    const auto& later = static_cast<const TextPickFold&>(laterFold);
    for (std::size_t i = 0; i < groups.size(); ++i) {
      take(picked_[groups[i]], later.picked_[i].what, later.textOf(later.picked_[i]));
    }
    compact();
  }

  std::size_t numStates() const override { return 2; }

  std::vector<Column> states() const override {
    auto buffer = allocateBuffer(static_cast<std::int64_t>(picked_.size()));
    for (std::size_t i = 0; i < picked_.size(); ++i) {
      buffer->mutable_data()[i] = static_cast<std::uint8_t>(picked_[i].what);
    }
    return {
        Column(ElementType::UInt8, static_cast<std::int64_t>(picked_.size()), std::move(buffer)),
        texts()};
  }

  void setStates(std::span<const Column> columns) override {
    assert(picked_.empty() && columns.size() == numStates());
    resize(columns.front().rows());
    const auto whats = columns[0].values<std::uint8_t>();
    const TextView texts(columns[1]);
    for (std::size_t i = 0; i < picked_.size(); ++i) {
      take(picked_[i], static_cast<What>(whats[i]), texts[static_cast<std::int64_t>(i)]);
    }
  }

  Column answers() const override { return texts(); }

 private:
  enum class What : std::uint8_t { None, Text, Missing };

  struct Picked {
    std::size_t begin = 0;
    std::size_t bytes = 0;
    What what = What::None;
  };

  static constexpr std::size_t kLeastWaste = 1 << 16;

  std::string_view textOf(const Picked& picked) const {
    return {bytes_.data() + picked.begin, picked.bytes};
  }

  /// A missing value decides about an extreme, whatever else comes.
  bool takes(const Picked& picked, What what, std::string_view text) const {
    if (what == What::None || picked.what == What::None) {
      return what != What::None;
    }
    if constexpr (pick == Pick::First || pick == Pick::Last) {
      return pick == Pick::Last;
    }
    if (picked.what == What::Missing || what == What::Missing) {
      return picked.what != What::Missing;
    }
    return pick == Pick::Min ? text < textOf(picked) : text > textOf(picked);
  }

  void take(Picked& picked, What what, std::string_view text) {
    if (!takes(picked, what, text)) {
      return;
    }
    waste_ += picked.bytes;
    picked = {bytes_.size(), text.size(), what};
    bytes_.insert(bytes_.end(), text.begin(), text.end());
  }

  void compact() {
    if (waste_ < kLeastWaste || waste_ < bytes_.size() / 2) {
      return;
    }
    std::pmr::vector<char> bytes(currentResource());
    bytes.reserve(bytes_.size() - waste_);
    for (Picked& picked : picked_) {
      const std::string_view text = textOf(picked);
      picked.begin = bytes.size();
      bytes.insert(bytes.end(), text.begin(), text.end());
    }
    bytes_.swap(bytes);
    waste_ = 0;
  }

  Column texts() const {
    const auto rows = static_cast<std::int64_t>(picked_.size());
    auto offsets = allocateBuffer((rows + 1) * static_cast<std::int64_t>(sizeof(std::int32_t)));
    auto* ends = offsets->mutable_data_as<std::int32_t>();
    std::size_t end = 0;
    ends[0] = 0;
    for (std::size_t i = 0; i < picked_.size(); ++i) {
      end += picked_[i].bytes;
      if (end > std::numeric_limits<std::int32_t>::max()) {
        errors::raiseStep("KALVEX:memory:TextTooLarge", {});
      }
      ends[i + 1] = static_cast<std::int32_t>(end);
    }
    auto bytes = allocateBuffer(static_cast<std::int64_t>(end));
    for (std::size_t i = 0; i < picked_.size(); ++i) {
      if (picked_[i].bytes > 0) {
        std::memcpy(bytes->mutable_data() + ends[i], bytes_.data() + picked_[i].begin,
                    picked_[i].bytes);
      }
    }
    NullBits nulls = nullBits(rows, [&](std::int64_t row) {
      return picked_[static_cast<std::size_t>(row)].what != What::Text;
    });
    return Column(ElementType::String,
                  arrow::ArrayData::Make(arrow::utf8(), rows,
                                         {std::move(nulls.bits), offsets, bytes}, nulls.count));
  }

  bool propagates_;
  std::pmr::vector<Picked> picked_{currentResource()};
  std::pmr::vector<char> bytes_{currentResource()};
  std::size_t waste_ = 0;  ///< bytes of texts that were replaced
};

}  // namespace

template <Pick pick>
std::unique_ptr<GroupFold> makeTextPickFold(MissingRule rule) {
  return std::make_unique<TextPickFold<pick>>(rule);
}

template std::unique_ptr<GroupFold> makeTextPickFold<Pick::Min>(MissingRule);
template std::unique_ptr<GroupFold> makeTextPickFold<Pick::Max>(MissingRule);
template std::unique_ptr<GroupFold> makeTextPickFold<Pick::First>(MissingRule);
template std::unique_ptr<GroupFold> makeTextPickFold<Pick::Last>(MissingRule);

}  // namespace kv::runtime
