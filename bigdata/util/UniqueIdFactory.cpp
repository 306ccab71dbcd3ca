#include "util/UniqueIdFactory.h"

#include <array>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <charconv>

#include "foundation/i18n.h"

namespace bigdata::util {

namespace {

/// Decimal digits of a count, without allocation.
class Digits {
 public:
  explicit Digits(std::uint64_t number)
      : end_(std::to_chars(digits_.begin(), digits_.end(), number).ptr) {}
  const char* begin() const { return digits_.begin(); }
  const char* end() const { return end_; }
  std::string_view view() const { return {begin(), static_cast<std::size_t>(end_ - begin())}; }

 private:
  std::array<char, 20> digits_;
  char* end_;
};

}  // namespace

UniqueId::UniqueId(std::u16string text) {
  if (!text.empty()) {
    base_ = std::make_shared<const std::u16string>(std::move(text));
  }
}

std::u16string UniqueId::text() const {
  if (base_ == nullptr) {
    return {};
  }
  std::u16string text = *base_;
  if (number_ != kNoNumber) {
    const Digits digits(number_);
    text.append(digits.begin(), digits.end());
  }
  return text;
}

bool operator==(const UniqueId& a, const UniqueId& b) {
  return a.base_ == b.base_ ? a.number_ == b.number_ : a.text() == b.text();
}

std::strong_ordering operator<=>(const UniqueId& a, const UniqueId& b) {
  const bool bothCounted = a.number_ != UniqueId::kNoNumber && b.number_ != UniqueId::kNoNumber;
  if (a.base_ == b.base_ && bothCounted) {
    return Digits(a.number_).view() <=> Digits(b.number_).view();
  }
  return a.text() <=> b.text();
}

UniqueIdFactory::UniqueIdFactory(std::string_view prefix) {
  boost::uuids::random_generator draw;
  const std::string uuid = boost::uuids::to_string(draw());
  base_ = std::make_shared<const std::u16string>(
      fl::i18n::to_ustring(std::string(prefix) + "_" + uuid + "_"));
}

}  // namespace bigdata::util
