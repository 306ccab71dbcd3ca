#include "definitions.h"
#include "texts.h"

namespace kv::python {

namespace {

nb::object countOf(int count) {
  return count < 0 ? nb::object(nb::str("variadic")) : nb::object(nb::int_(count));
}

nb::dict describeMember(const host::MemberDescription& member) {
  nb::dict described;
  described["kind"] = toPython(member.kind);
  if (member.kind != "constructor") {
    described["name"] = toPython(member.name);
  }
  if (member.kind == "property") {
    described["get"] = member.getAccess;
    described["set"] = member.setAccess;
    described["flags"] = member.flags;
    return described;
  }
  described["access"] = member.access;
  if (member.kind == "method") {
    described["form"] = toPython(member.form);
    described["static"] = member.isStatic;
  }
  described["inputs"] = countOf(member.inputs);
  if (member.kind == "method") {
    described["outputs"] = countOf(member.outputs);
  }
  return described;
}

}  // namespace

nb::dict describeClass(host::Session& session, std::string_view name) {
  const host::ClassDescription description = session.describe(name);
  nb::list superclasses;
  for (const std::string& superclass : description.superclasses) {
    superclasses.append(toPython(superclass));
  }
  nb::list members;
  for (const host::MemberDescription& member : description.members) {
    members.append(describeMember(member));
  }
  nb::dict described;
  described["name"] = toPython(description.name);
  described["superclasses"] = superclasses;
  described["sealed"] = description.isSealed;
  described["native"] = description.isNative;
  described["members"] = members;
  return described;
}

}  // namespace kv::python
