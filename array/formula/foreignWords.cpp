#include "formula/foreignWords.h"

#include <string>

#include "formula/utf8.h"

namespace kv::formula {

namespace {

constexpr ForeignWord kSymbols[] = {
    {"&&", "&"}, {"||", "|"}, {"**", "^"}, {"<>", "!="}, {"~", "!"}};

constexpr ForeignWord kOperators[] = {{"and", "&"}, {"or", "|"},  {"not", "!"},
                                      {"is", "=="}, {"mod", "%"}, {"div", "/"}};

constexpr ForeignWord kFunctions[] = {
    {"average", "mean"}, {"avg", "mean"},      {"ceiling", "ceil"}, {"greatest", "maximum"},
    {"if", "where"},     {"ifelse", "where"},  {"iif", "where"},    {"isna", "isnan"},
    {"isnull", "isnan"}, {"least", "minimum"}, {"len", "count"},    {"length", "count"},
    {"ln", "log"},       {"nrow", "count"},    {"pow", "power"},    {"random", "rand"},
    {"sd", "std"},       {"size", "count"},    {"stddev", "std"},   {"stdev", "std"},
    {"total", "sum"},    {"variance", "var"},
};

std::string_view find(std::span<const ForeignWord> words, std::string_view word) {
  const std::string lower = lowered(word);
  for (const ForeignWord& each : words) {
    if (each.word == lower) {
      return each.here;
    }
  }
  return {};
}

}  // namespace

std::span<const ForeignWord> foreignSymbols() { return kSymbols; }

std::string_view operatorHere(std::string_view word) { return find(kOperators, word); }

std::string_view functionHere(std::string_view name) {
  const std::string_view here = find(kFunctions, name);
  return here.empty() ? name : here;
}

}  // namespace kv::formula
