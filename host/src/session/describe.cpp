#include "session/describe.h"

namespace kv::host {

namespace {

const char* formOf(const Method& method) {
  if (method.isAbstract) {
    return "abstract";
  }
  if (method.native == nullptr && method.body == nullptr) {
    return "declared";
  }
  return method.native != nullptr && method.counts.isExact() ? "fixed" : "variadic";
}

MemberDescription describeMethod(const ClassRecord& record, const Method& method) {
  MemberDescription member;
  const bool isConstructor = method.name == record.shortName();
  member.kind = isConstructor ? "constructor" : "method";
  member.access = static_cast<int>(method.access);
  if (!isConstructor) {
    member.name = method.name.text();
    member.form = formOf(method);
    member.isStatic = method.isStatic;
  }
  if (method.native != nullptr && method.counts.isExact() && !method.isAbstract) {
    member.inputs = method.counts.maxInputs;
    member.outputs = method.counts.maxOutputs;
  }
  return member;
}

MemberDescription describeProperty(const Property& property) {
  MemberDescription member;
  member.kind = "property";
  member.name = property.name.text();
  member.getAccess = static_cast<int>(property.getAccess);
  member.setAccess = static_cast<int>(property.setAccess);
  member.flags = property.flags;
  return member;
}

}  // namespace

ClassDescription describeClass(const ClassRecord& record) {
  const ClassContents& contents = record.contents();
  ClassDescription description;
  description.name = record.getName();
  for (const kcos::COSInternedBase name : contents.superclasses) {
    description.superclasses.emplace_back(name.text());
  }
  description.isSealed = record.isSealed();
  description.isNative = record.isNative();
  for (const ClassContents::Member& member : contents.order) {
    const auto* method = std::get_if<const Method*>(&member);
    description.members.push_back(method != nullptr
                                      ? describeMethod(record, **method)
                                      : describeProperty(*std::get<const Property*>(member)));
  }
  return description;
}

}  // namespace kv::host
