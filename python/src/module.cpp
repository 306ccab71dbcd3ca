#include <nanobind/nanobind.h>
#include <nanobind/stl/string.h>

#include "Function.h"
#include "Object.h"
#include "bindSession.h"
#include "evaluation.h"
#include "kv/host/errors.h"
#include "kv/host/session.h"

namespace kv::python {
namespace {

constexpr host::CatalogueEntry kCatalogue[] = {
    {"KALVEX:session:InUse", "The session can't be closed while a call runs in it."},
    {"KALVEX:session:OtherSession", "The value belongs to another session."},
    {"KALVEX:session:Ambiguous",
     "Function '{0}' doesn't know its session, and {1} are open on this thread: call it by name "
     "through the session that you mean, as session.call('{0}', ...)."},
};

nb::dict ledger() {
  const host::Ledger counts = host::ledger();
  nb::dict result;
  result["objects"] = counts.objects;
  result["arrays"] = counts.arrays;
  result["payloads"] = counts.payloads;
  result["payload_bytes"] = counts.payloadBytes;
  return result;
}

}  // namespace
}  // namespace kv::python

NB_MODULE(_host, module) {
  using namespace kv::python;
  kv::host::addToCatalogue(kCatalogue);
  watchEvaluations();
  bindSession(module);
  bindObject(module);
  bindFunction(module);
  module.def("ledger", ledger, nb::sig("def ledger() -> dict[str, int]"),
             "What the process holds: counts of objects, arrays and payloads, and bytes. Zero when "
             "every session is closed and every value dropped.");
  module.def("close_all", SharedSession::closeAll, "Closes the sessions that are still open.");
}
