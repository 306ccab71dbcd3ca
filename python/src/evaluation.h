#pragma once

namespace kv::python {

/// Has evaluations let go of the interpreter's lock, and look for signals (an interrupt from the
/// keyboard) while they run.
void watchEvaluations();

}  // namespace kv::python
