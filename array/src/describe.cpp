#include "kv/describe.h"

#include "kv/runtime/runtime.h"
#include "publicCall.h"

namespace kv {

namespace {

MemberDescription toOurs(const host::MemberDescription& member) {
  return {member.kind,  member.name, member.access,   member.getAccess, member.setAccess,
          member.flags, member.form, member.isStatic, member.inputs,    member.outputs};
}

ClassDescription toOurs(const host::ClassDescription& description) {
  ClassDescription ours = {
      description.name, description.superclasses, description.isSealed, description.isNative, {}};
  for (const auto& member : description.members) {
    ours.members.push_back(toOurs(member));
  }
  return ours;
}

}  // namespace

std::vector<std::string> classNames(Session& session) {
  Session::Impl& impl = session.impl();
  return publicCall(impl, Where::current(), [&] { return impl.host.classes(); });
}

ClassDescription describe(Session& session, std::string_view name) {
  Session::Impl& impl = session.impl();
  return publicCall(impl, Where::current(), [&] { return toOurs(impl.host.describe(name)); });
}

std::string_view release() { return runtime::release(); }

}  // namespace kv
