#include "describeCommand.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <kv/describe.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "failures.h"
#include "formula/nearNames.h"
#include "formula/utf8.h"
#include "output.h"

namespace kv::shell {

namespace {

std::string accessName(int access) {
  switch (access) {
    case 0:
      return "public";
    case 1:
      return "protected";
    case 2:
      return "private";
    case 3:
      return "only during construction";
    case 5:
      return "never";
    default:
      return fmt::format("access {}", access);
  }
}

/// `2 inputs`, `1 output`, `any inputs`.
std::string counted(int count, std::string_view noun) {
  if (count < 0) {
    return fmt::format("any {}s", noun);
  }
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

using Row = std::array<std::string, 4>;  // kind, name, access, the rest

Row rowOf(const MemberDescription& member) {
  if (member.kind == "property") {
    return {
        member.kind, member.name,
        fmt::format("get {}, set {}", accessName(member.getAccess), accessName(member.setAccess)),
        fmt::format("flags {}", member.flags)};
  }
  if (member.kind == "constructor") {
    return {member.kind, "", accessName(member.access), counted(member.inputs, "input")};
  }
  return {member.kind, member.name, accessName(member.access),
          fmt::format("{}{}, {}, {}", member.isStatic ? "static, " : "", member.form,
                      counted(member.inputs, "input"), counted(member.outputs, "output"))};
}

std::string asText(const ClassDescription& description) {
  std::string text = description.name + '\n';
  text += fmt::format("  {}{} class", description.isSealed ? "sealed " : "",
                      description.isNative ? "native" : "language");
  if (!description.superclasses.empty()) {
    text += fmt::format(", superclasses: {}", fmt::join(description.superclasses, ", "));
  }
  text += '\n';
  std::vector<Row> rows;
  for (const MemberDescription& member : description.members) {
    rows.push_back(rowOf(member));
  }
  std::array<std::size_t, 4> widths = {};
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], displayWidth(row[i]));
    }
  }
  for (const Row& row : rows) {
    text += fmt::format("\n  {}  {}  {}  {}", padded(row[0], widths[0]), padded(row[1], widths[1]),
                        padded(row[2], widths[2]), row[3]);
  }
  return text + '\n';
}

std::string jsonCount(int count) { return count < 0 ? "\"variadic\"" : fmt::format("{}", count); }

std::string asJson(const MemberDescription& member) {
  const std::string kind = fmt::format("{{\"kind\": {}", jsonText(member.kind));
  if (member.kind == "constructor") {
    return fmt::format("{}, \"access\": {}, \"inputs\": {}}}", kind, member.access,
                       jsonCount(member.inputs));
  }
  const std::string named = fmt::format("{}, \"name\": {}", kind, jsonText(member.name));
  if (member.kind == "property") {
    return fmt::format("{}, \"get\": {}, \"set\": {}, \"flags\": {}}}", named, member.getAccess,
                       member.setAccess, member.flags);
  }
  return fmt::format(
      "{}, \"access\": {}, \"form\": {}, \"static\": {}, \"inputs\": {}, \"outputs\": {}}}", named,
      member.access, jsonText(member.form), member.isStatic, jsonCount(member.inputs),
      jsonCount(member.outputs));
}

std::string asJson(const ClassDescription& description) {
  std::string members;
  for (const MemberDescription& member : description.members) {
    members += fmt::format("{}\n  {}", members.empty() ? "" : ",", asJson(member));
  }
  return fmt::format(
      "{{\"name\": {}, \"superclasses\": {}, \"sealed\": {}, \"native\": {}, \"members\": [{}]}}\n",
      jsonText(description.name), jsonTexts(description.superclasses), description.isSealed,
      description.isNative, members);
}

std::string listOf(const std::vector<std::string>& names, bool json) {
  return json ? jsonTexts(names) + '\n' : fmt::format("{}\n", fmt::join(names, "\n"));
}

/// Errors: UsageError that names near classes.
ClassDescription find(Session& session, const std::string& name) {
  try {
    return describe(session, name);
  } catch (const Error& error) {
    if (error.identifier() != "KALVEX:UndefinedFunction") {
      throw;
    }
  }
  const auto near = formula::nearNames(name, classNames(session));
  const std::string advice = near.empty()
                                 ? std::string("\"kvbig describe\" lists the classes.")
                                 : fmt::format("Did you mean {}?", fmt::join(near, " or "));
  throw UsageError(fmt::format("there is no class \"{}\"\n{}", formula::shortened(name), advice));
}

}  // namespace

void runDescribe(const std::optional<std::string>& name, bool json) {
  Session session;
  if (!name) {
    return writeOut(listOf(classNames(session), json));
  }
  const ClassDescription description = find(session, *name);
  writeOut(json ? asJson(description) : asText(description));
}

}  // namespace kv::shell
