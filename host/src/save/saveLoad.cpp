#include <array>
#include <vector>

#include "kv/host/session.h"
#include "save/Container.h"
#include "save/FileTables.h"
#include "save/GraphReader.h"
#include "save/GraphWriter.h"
#include "save/files.h"
#include "session/inSession.h"

namespace kv::host {

namespace {

Value valueOf(SessionState& session, std::string_view bytes, bool trusted) {
  const FileTables tables(sectionsOf(bytes));
  return GraphReader(session, tables, trusted).read();
}

}  // namespace

void Session::save(const std::string& path, const kxArray* value) {
  inSession(*this, [&] {
    const Sections sections = GraphWriter(*state_).write(value);
    const std::string header = headerOf(sections);
    std::vector<std::string_view> pieces{header};
    pieces.insert(pieces.end(), sections.begin(), sections.end());
    writeFileAtomically(path, pieces);
  });
}

Value Session::load(const std::string& path, bool trusted) {
  return inSession(*this, [&] {
    return valueOf(*state_, readFile(path, format::kHeaderBytes, checkHead), trusted);
  });
}

std::string Session::saveBytes(const kxArray* value) {
  return inSession(*this, [&] {
    const Sections sections = GraphWriter(*state_).write(value);
    std::string bytes = headerOf(sections);
    for (const std::string& section : sections) {
      bytes += section;
    }
    return bytes;
  });
}

Value Session::loadBytes(std::string_view bytes, bool trusted) {
  return inSession(*this, [&] { return valueOf(*state_, bytes, trusted); });
}

}  // namespace kv::host
