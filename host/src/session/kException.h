#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kcos/interface.h"
#include "kv/host/definitions.h"
#include "kv/host/errors.h"

namespace kv::host {

struct SessionState;

/// The class "KException": what errors are as objects of the host.
///
/// Properties, all with public get access, set by the class and its subclasses: "identifier" and
/// "message" (texts), "stack" (n-by-1 structure), "cause" (a KException, or `[]`), "arguments"
/// (1-by-n cell of texts). The constructor takes up to three inputs: identifier, message,
/// arguments.
std::shared_ptr<const ClassDefinition> kExceptionDefinition();

/// A new KException with the live user stack.
kcos::COSInterfacePtr makeKException(SessionState& session, std::string_view identifier,
                                     std::string_view message,
                                     const std::vector<std::string>& arguments);

/// Reads a KException, or an object of a subclass, with its chain of causes.
ErrorRecord readKException(kcos::COSInterface* exception);

}  // namespace kv::host
