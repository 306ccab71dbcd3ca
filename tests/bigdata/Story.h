#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "LazySession.h"

namespace bigdata::lazyeval {

/// A part of a story: a title, and lines to play in a session of their own.
struct Scene {
  std::string name;  ///< of file and title, as an identifier
  std::vector<std::string> lines;
};

/// All scenes of the files in the folder of stories. A line "== title" begins a scene; lines before
/// the first scene of a file are played at the start of each of its scenes.
std::vector<Scene> readScenes();

/// Plays scenes: calls by name into the core, each with its expected answer. The language is
/// described in README.md in the folder of stories.
class Story : public LazySession {
 protected:
  Story();
  /// Result: how the outcome differs from the line; empty if it doesn't.
  std::string play(std::string_view line);

 private:
  class Reader;

  void defineSaving();
  std::string act(Reader& line);
  std::string check(Reader& line);
  void defineStub(Reader& line, bool isNoted);
  void defineClass(Reader& line);
  kv::host::NativeBody bodyOf(const std::string& text);
  Value evaluate(Reader& text, int nlhs = 1);
  Value primary(Reader& text, int nlhs);
  std::vector<Value> list(Reader& text, char end);
  Value called(const std::string& name, int nlhs, const std::vector<Value>& inputs);
  std::string textOf(const kxArray* value);
  std::string trace();

  std::map<std::string, Value, std::less<>> things_;
  const Call* stubbed_ = nullptr;  ///< the call that a stub answers
};

}  // namespace bigdata::lazyeval
