#include "session/access.h"

#include <string>

#include "kv/host/errors.h"
#include "session/ClassRecord.h"

namespace kv::host {

namespace {

bool hasMember(const ClassRecord& record, kcos::COSInternedBase member) {
  const LinkedClass& linked = record.linked();
  return linked.methods.contains(member) || linked.properties.contains(member);
}

}  // namespace

bool mayAccess(MemberAccess access, const ClassRecord& owner, kcos::COSInternedBase member,
               const ClassRecord* caller) {
  if (access == MemberAccess::Public) {
    return true;
  }
  if (caller == nullptr || access == MemberAccess::Immutable || access == MemberAccess::None) {
    return false;
  }
  if (caller == &owner) {
    return true;
  }
  return access == MemberAccess::Protected &&
         (caller->isA(owner.name()) || (owner.isA(caller->name()) && hasMember(*caller, member)));
}

void raiseAccessDenied(const ClassRecord& owner, kcos::COSInternedBase member) {
  raise("KALVEX:class:AccessDenied", {std::string(owner.getName()), std::string(member.text())});
}

void raiseNoSuchMember(const ClassRecord& asked, kcos::COSInternedBase member) {
  raise("KALVEX:class:NoSuchMember", {std::string(asked.getName()), std::string(member.text())});
}

}  // namespace kv::host
