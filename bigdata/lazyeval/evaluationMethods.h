#pragma once

#include "lazyeval/RawCall.h"

/// The methods with which the host evaluates lazy arrays, for native callers. Their bodies belong
/// to the host's part of the class and are called with the class's own rights.
///
/// Errors: an internal error if the class only declares the method; those of the body.
namespace bigdata::lazyeval {

void gather(const RawCall& call);
void clientforeach(const RawCall& call);
void vertcatpartitions(const RawCall& call);

}  // namespace bigdata::lazyeval
