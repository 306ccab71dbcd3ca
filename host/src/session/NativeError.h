#pragma once

#include <exception>
#include <string>
#include <vector>

#include "foundation/exception.h"

namespace kv::host {

struct KV_HOST_API OutOfMemoryId {
  static constexpr const char *category = "KALVEX", *key = "OutOfMemory";
};

/// The error when memory is out for a KException, too: it stays native, and making it allocates
/// nothing.
using OutOfMemory = foundation::core::except::Exception<OutOfMemoryId>;

/// An error of the host where no session can make a KException of it: it stays native.
class KV_HOST_API NativeError final : public std::exception,
                                      public foundation::core::except::IMsgIDException,
                                      public foundation::core::except::IUserException {
 public:
  explicit NativeError(std::string_view identifier, const std::vector<std::string>& arguments);
  ~NativeError() override;

  std::string_view get_category() const noexcept override { return category_; }
  std::string_view get_key() const noexcept override { return key_; }
  const std::vector<std::u16string>& get_arguments() const noexcept override { return arguments_; }
  /// Id, ": " and text.
  const char* what() const noexcept override { return text_.c_str(); }

 private:
  std::string category_;
  std::string key_;
  std::vector<std::u16string> arguments_;
  std::string text_;
};

}  // namespace kv::host
