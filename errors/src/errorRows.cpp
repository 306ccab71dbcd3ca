// The tables of all floors are joined and sorted while this file is compiled, so the rows exist
// before any code runs, and a mistake in one of them stops the build.

#include <array>
#include <iterator>

#include "arrayRows.h"
#include "coreRows.h"
#include "functionRows.h"
#include "hostRows.h"
#include "kv/errors/ErrorRow.h"
#include "pythonRows.h"
#include "runtimeRows.h"
#include "sinkRows.h"
#include "sourceRows.h"

namespace kv::errors {

namespace {

template <std::size_t... Sizes>
consteval auto joinSorted(const ErrorRow (&... tables)[Sizes]) {
  std::array<ErrorRow, (Sizes + ...)> rows;
  auto* end = rows.data();
  ((end = std::copy(std::begin(tables), std::end(tables), end)), ...);
  std::ranges::sort(rows, {}, &ErrorRow::id);
  return rows;
}

constexpr auto kRows = joinSorted(kHostRows, kCoreRows, kSourceRows, kFunctionRows, kRuntimeRows,
                                  kSinkRows, kArrayRows, kPythonRows);

/// True if each "{" of the text opens the place of an argument that the row has.
constexpr bool hasFittingPlaces(const ErrorRow& row) {
  for (std::size_t i = 0; i < row.text.size(); ++i) {
    if (row.text[i] == '{') {
      const std::size_t argument = static_cast<std::size_t>(row.text[i + 1] - '0');
      const std::string_view rest = row.text.substr(i + 2);
      if (argument >= row.numArguments() ||
          !(rest.starts_with("}") || rest.starts_with(":short}"))) {
        return false;
      }
    }
  }
  return true;
}

static_assert(std::ranges::adjacent_find(kRows, {}, &ErrorRow::id) == kRows.end(),
              "an id has two rows");
static_assert(std::ranges::all_of(kRows, hasFittingPlaces),
              "a text has a place for an argument that its row lacks");

}  // namespace

std::span<const ErrorRow> errorRows() noexcept { return kRows; }

const ErrorRow* findErrorRow(std::string_view id) noexcept {
  const auto* found = std::ranges::lower_bound(kRows, id, {}, &ErrorRow::id);
  return found != kRows.end() && found->id == id ? found : nullptr;
}

bool fitsRow(std::string_view id, std::size_t numArguments) noexcept {
  const ErrorRow* row = findErrorRow(id);
  return row == nullptr || row->numArguments() == numArguments;
}

}  // namespace kv::errors
