#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kcos/calls.h"
#include "kv/errors/ErrorRecord.h"
#include "kv/errors/PassThrough.h"
#include "kv/host/export.h"

namespace kv::host {

using errors::ErrorRecord;
using errors::Frame;
using errors::PassThrough;

/// Reads the exception out of its envelope.
KV_HOST_API ErrorRecord errorRecord(const Torvane::KException::KExceptionEnvelope& envelope);

/// A KException made of a record: with its identifier, message, arguments, stack and causes, but
/// not of its class. One without a stack gets the live one.
KV_HOST_API kcos::COSInterfacePtr exceptionOf(const ErrorRecord& record);

/// Raises a KException with the text of the row of `identifier` (see kv/errors/ErrorRow.h), or of
/// addToCatalogue(), filled in with the arguments.
///
/// Requires: the arguments are those of the row, if there is one.
[[noreturn]] KV_HOST_API void raise(std::string_view identifier,
                                    const std::vector<std::string>& arguments = {});

/// Raises a KException with a message of its own.
[[noreturn]] KV_HOST_API void raiseWithMessage(std::string_view identifier,
                                               std::string_view message,
                                               const std::vector<std::string>& arguments = {});

/// Throws an existing KException object, or one of a subclass.
[[noreturn]] KV_HOST_API void throwException(const kxArray* exception);

/// The text of an id, filled in with its arguments; for an unknown id the id and the arguments.
KV_HOST_API std::string catalogueText(std::string_view identifier,
                                      std::span<const std::string> arguments);

/// Adds texts of ids, with {0}, {1}, ... where arguments go: for libraries that have ids of their
/// own, at load.
struct CatalogueEntry {
  std::string_view identifier;
  std::string_view text;
};
KV_HOST_API void addToCatalogue(std::span<const CatalogueEntry> entries);

}  // namespace kv::host
