#pragma once

#include <string>

#include "kv/host/session.h"

namespace bigdata {

/// A class as registered, one line a member in the order of registration:
///
///     constructor 2 (0)                 access, number of inputs or "any"
///     property Id 0/2 2560              get access, set access, flags
///     method copy 0 1->1                access, inputs and outputs, or "any", "abstract",
///     "declared"
inline std::string describeAsText(const kv::host::ClassDescription& description) {
  std::string text;
  for (const std::string& superclass : description.superclasses) text += "< " + superclass + "\n";
  for (const kv::host::MemberDescription& member : description.members) {
    const auto count = [](int number) { return number < 0 ? "any" : std::to_string(number); };
    text += member.kind + (member.name.empty() ? "" : " " + member.name) + " ";
    if (member.kind == "property") {
      text += std::to_string(member.getAccess) + "/" + std::to_string(member.setAccess) + " " +
              std::to_string(member.flags);
    } else if (member.kind == "constructor") {
      text += std::to_string(member.access) + " (" + count(member.inputs) + ")";
    } else {
      const bool fixed = member.form == "fixed";
      text += std::to_string(member.access) + (member.isStatic ? " static " : " ") +
              (fixed                       ? count(member.inputs) + "->" + count(member.outputs)
               : member.form == "variadic" ? "any"
                                           : member.form);
    }
    text += "\n";
  }
  return text;
}

}  // namespace bigdata
