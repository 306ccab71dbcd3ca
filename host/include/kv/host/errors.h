#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kcos/calls.h"
#include "kv/host/export.h"

namespace kv::host {

/// A frame of a user's stack.
struct Frame {
  std::string file;
  std::string name;
  int line = 0;
};

/// What a KException holds, in C++ terms.
struct ErrorRecord {
  std::string identifier;
  std::string message;
  std::vector<std::string> arguments;
  std::vector<Frame> stack;         ///< innermost first
  std::vector<ErrorRecord> causes;  ///< at most one; its own causes follow inside
  std::string className;            ///< "KException" or a subclass
};

/// Reads the exception out of its envelope.
KV_HOST_API ErrorRecord errorRecord(const Torvane::KException::KExceptionEnvelope& envelope);

/// Raises a KException with an id of the catalogue; its text is made from the arguments.
[[noreturn]] KV_HOST_API void raise(std::string_view identifier,
                                    const std::vector<std::string>& arguments = {});

/// Raises a KException with a message of its own.
[[noreturn]] KV_HOST_API void raiseWithMessage(std::string_view identifier,
                                               std::string_view message,
                                               const std::vector<std::string>& arguments = {});

/// Throws an existing KException object, or one of a subclass.
[[noreturn]] KV_HOST_API void throwException(const kxArray* exception);

/// The text of an id with its arguments put in; for an unknown id the id and the arguments.
KV_HOST_API std::string catalogueText(std::string_view identifier,
                                      std::span<const std::string> arguments);

/// Adds ids to the catalogue: texts with {0}, {1}, ... where arguments go. For libraries that bring
/// ids of their own, at load.
struct CatalogueEntry {
  std::string_view identifier;
  std::string_view text;
};
KV_HOST_API void addToCatalogue(std::span<const CatalogueEntry> entries);

/// Base of exceptions that aren't errors and pass through bound calls as they are, such as an
/// interrupt.
class KV_HOST_API PassThrough : public std::exception {
 public:
  ~PassThrough() override;
};

}  // namespace kv::host
