#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <string_view>

#include "kv/errors/ErrorRecord.h"
#include "kv/errors/export.h"

namespace kv::errors {

/// The id of an exception that has none: its text is the only argument. The step in which it was
/// thrown decides what it means to the user.
inline constexpr std::string_view kNativeException = "KALVEX:NativeException";

/// Why a unit ended early: which step failed, on which rows, and with which error. A plain value,
/// which any thread or process may make, keep and pass on.
///
/// `foreign` is the exception itself if it belongs to a session or to another language. It is valid
/// in this process only and not part of the bytes. Code that raises the failure prefers it to the
/// record, so that a user's exception comes back as the same object.
struct FailureRecord {
  std::size_t step = 0;        ///< of the stage
  std::int64_t partition = 0;  ///< counted from 0
  std::int64_t firstRow = 0;   ///< ordinals [firstRow, lastRow) of the partition; none where
  std::int64_t lastRow = 0;    ///< reading failed
  ErrorRecord error{};
  std::exception_ptr foreign{};

  /// All but `foreign`.
  std::string toBytes() const;

  /// Errors: "KALVEX:executor:BadBytes" for bytes that toBytes() didn't make, or that were cut.
  static FailureRecord fromBytes(std::string_view content);
};

/// An error that was caught where it could be read, in a session or in another language, and goes
/// on to where no session is at hand.
class KV_ERRORS_API RecordedError : public std::exception {
 public:
  RecordedError(ErrorRecord record, std::exception_ptr foreign);
  ~RecordedError() override;
  RecordedError(const RecordedError&) noexcept;

  const ErrorRecord& record() const noexcept;
  const std::exception_ptr& foreign() const noexcept;
  /// The message.
  const char* what() const noexcept override;

 private:
  struct Content;
  std::shared_ptr<const Content> content_;
};

/// The failure that an exception is, without its place. Reads StepError, RecordedError and
/// std::bad_alloc; any other exception becomes kNativeException with its text.
///
/// Requires: `thrown` isn't null.
FailureRecord recordFailure(const std::exception_ptr& thrown);

}  // namespace kv::errors
