#pragma once

#include "kx/array.h"

namespace kv::host {

/// "feval": calls its first input, a function handle or a name, with the others. Dispatched as a
/// method on its first input alone.
void fevalBuiltin(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs);

/// "str2func": a handle of the function that its one input names.
void str2funcBuiltin(int nlhs, kxArray** plhs, int nrhs, const kxArray** prhs);

}  // namespace kv::host
