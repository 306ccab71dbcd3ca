#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "LazySession.h"

namespace bigdata::lazyeval {

namespace {

using kv::host::MemberDescription;

/// The core's classes as registered, in the order in which the library registers them, written as
/// in the golden file. A class is its name, its superclass and "sealed"; its members follow, as
///
///     (2) 0                        constructor: number of inputs, or "...", and access
///     Id 0/2 2560 = text           property: get access, set access, flags
///     copy(1>1) 0 = KALVEX:...     method: inputs, outputs and access
///     feval declared static 2      method without counts: its form and access
///
/// After "=" comes the answer of a shell: an object that the host makes when it loads and for which
/// the file holds nothing. Methods get `[]` for each input.
class ClassTables : public LazySession {
 protected:
  static std::string shapeOf(const MemberDescription& member) {
    std::ostringstream text;
    if (member.kind == "property") {
      text << member.name << ' ' << member.getAccess << '/' << member.setAccess << ' '
           << member.flags;
      return text.str();
    }
    const std::string inputs = member.inputs < 0 ? "..." : std::to_string(member.inputs);
    if (member.kind == "constructor") {
      text << '(' << inputs << ')';
    } else if (member.form == "fixed") {
      text << member.name << '(' << inputs << '>' << member.outputs << ')';
    } else {
      text << member.name << ' ' << member.form;
    }
    text << (member.isStatic ? " static " : " ") << member.access;
    return text.str();
  }

  std::string answerOf(const Value& shell, const MemberDescription& member,
                       const std::string& rights) {
    if (member.kind == "constructor" || member.isStatic) {
      return "";
    }
    Value answer;
    const std::string error = errorOf([&] {
      if (member.kind == "property") {
        answer = session.get(shell.get(), member.name, rights);
        return;
      }
      const auto count = static_cast<std::size_t>(std::max(member.inputs, 1)) - 1;
      const Value nothing = kv::host::makeEmptyDouble();
      const std::vector<const kxArray*> inputs(count, nothing.get());
      answer = std::move(session.invoke(shell.get(), member.name, 1, inputs, rights).at(0));
    });
    const std::string shownAnswer = answer == nullptr ? "null" : shown(answer.get());
    return " = " + (error == "no error" ? shownAnswer : error);
  }

  std::string tableOf(const std::string& name) {
    const auto description = session.describe(name);
    std::string table = name;
    for (const std::string& super : description.superclasses) {
      table += " : " + super;
    }
    table += description.isSealed ? " sealed\n" : "\n";
    Value shell;
    const std::string error = errorOf([&] { shell = session.loadInstance(name, {}); });
    if (shell == nullptr) {
      table += "    no shell: " + error + "\n";
    }
    for (const MemberDescription& member : description.members) {
      table += "    " + shapeOf(member);
      table += (shell == nullptr ? "" : answerOf(shell, member, name)) + "\n";
    }
    return table;
  }
};

TEST_F(ClassTables, ReadAsTheGoldenFile) {
  std::string tables;
  for (const std::string& name : session.classes()) {
    if (session.describe(name).isNative) {
      tables += tableOf(name);
    }
  }
  if (std::getenv("KV_WRITE_GOLDEN") != nullptr) {
    std::ofstream(KV_CLASS_TABLES) << tables;
  }
  std::ifstream file(KV_CLASS_TABLES);
  EXPECT_EQ(tables, std::string(std::istreambuf_iterator<char>(file), {}))
      << "KV_WRITE_GOLDEN=1 rewrites the file";
}

}  // namespace
}  // namespace bigdata::lazyeval
