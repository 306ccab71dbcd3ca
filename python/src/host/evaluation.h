#pragma once

namespace kv::python {

/// Makes evaluations release the interpreter's lock and check for signals (an interrupt from the
/// keyboard) while they run.
void watchEvaluations();

}  // namespace kv::python
