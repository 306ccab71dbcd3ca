#pragma once

#include <boost/exception/exception.hpp>
#include <exception>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/i18n.h"
#include "kv/host/export.h"

/// Native exceptions with an id: one type per id. At the edge of a bound call the host turns one
/// into a KException by its id and arguments; the text comes from the catalogue.
namespace foundation::core::except {

class KV_HOST_API IException {
 public:
  virtual ~IException();
};

/// An error that is meant for the user.
class KV_HOST_API IUserException : public virtual IException {
 public:
  ~IUserException() override;
};

/// An error with a message id, made of category and key, and the message's arguments in order.
class KV_HOST_API IMsgIDException : public virtual IException {
 public:
  ~IMsgIDException() override;

  virtual std::string_view get_category() const noexcept = 0;
  virtual std::string_view get_key() const noexcept = 0;
  virtual const std::vector<std::u16string>& get_arguments() const noexcept = 0;

  /// Category, ":" and key.
  std::string get_error_id() const;
};

/// `Tag` names the id: it has the constants `category` and `key`.
template <class Tag, class Base = std::exception, class Extra = void>
class KV_HOST_API Exception : public Base,
                              public IMsgIDException,
                              public IUserException,
                              public boost::exception,
                              public boost::exception_detail::clone_base {
 public:
  Exception() = default;
  explicit Exception(std::vector<std::u16string> arguments) : arguments_(std::move(arguments)) {}

  std::string_view get_category() const noexcept override { return Tag::category; }
  std::string_view get_key() const noexcept override { return Tag::key; }
  const std::vector<std::u16string>& get_arguments() const noexcept override { return arguments_; }
  const char* what() const noexcept override { return Tag::key; }

  const clone_base* clone() const override { return new Exception(*this); }
  void rethrow() const override { throw *this; }

 private:
  std::vector<std::u16string> arguments_;
};

/// Throws the exception of `Tag` with arguments given as UTF-8.
template <class Tag, class... Texts>
[[noreturn]] void raise(const Texts&... arguments) {
  throw Exception<Tag, std::exception, void>(
      std::vector<std::u16string>{fl::i18n::to_ustring(arguments)...});
}

}  // namespace foundation::core::except
