#include <arrow/chunked_array.h>
#include <arrow/compute/api.h>
#include <arrow/compute/initialize.h>
#include <arrow/csv/api.h>
#include <arrow/io/file.h>
#include <arrow/scalar.h>
#include <arrow/table.h>

#include <stdexcept>

#include "support/Flights.h"

namespace kv::bench {

namespace {

namespace cp = arrow::compute;

arrow::Result<std::shared_ptr<arrow::Table>> readFlights(const std::string& path) {
  ARROW_ASSIGN_OR_RAISE(auto file, arrow::io::ReadableFile::Open(path));
  auto reading = arrow::csv::ReadOptions::Defaults();
  reading.use_threads = false;
  auto conversion = arrow::csv::ConvertOptions::Defaults();
  conversion.include_columns = {"origin", "dep_delay", "arr_delay", "distance"};
  ARROW_ASSIGN_OR_RAISE(
      auto reader, arrow::csv::TableReader::Make(arrow::io::default_io_context(), file, reading,
                                                 arrow::csv::ParseOptions::Defaults(), conversion));
  return reader->Read();
}

arrow::Result<double> asDouble(arrow::Result<arrow::Datum> answer) {
  ARROW_ASSIGN_OR_RAISE(const arrow::Datum datum, std::move(answer));
  ARROW_ASSIGN_OR_RAISE(const auto number, datum.scalar()->CastTo(arrow::float64()));
  return static_cast<const arrow::DoubleScalar&>(*number).value;
}

arrow::Result<FlightAnswers> ask(const std::string& path) {
  ARROW_RETURN_NOT_OK(cp::Initialize());
  ARROW_ASSIGN_OR_RAISE(const auto all, readFlights(path));
  cp::ExecContext context;
  context.set_use_threads(false);

  const arrow::Datum airport(std::make_shared<arrow::StringScalar>("JFK"));
  ARROW_ASSIGN_OR_RAISE(
      const auto isFromJfk,
      cp::CallFunction("equal", {all->GetColumnByName("origin"), airport}, &context));
  ARROW_ASSIGN_OR_RAISE(const auto numbers, all->SelectColumns({1, 2, 3}));
  ARROW_ASSIGN_OR_RAISE(const auto kept,
                        cp::Filter(numbers, isFromJfk, cp::FilterOptions::Defaults(), &context));
  const auto delay = kept.table()->column(0);
  const arrow::Datum hour(std::make_shared<arrow::Int64Scalar>(60));
  ARROW_ASSIGN_OR_RAISE(const auto isLate,
                        cp::CallFunction("greater", {kept.table()->column(1), hour}, &context));
  const auto skipping = cp::ScalarAggregateOptions::Defaults();
  const cp::VarianceOptions ofSample(1);
  const cp::CountOptions counting(cp::CountOptions::ONLY_VALID);
  const auto callOn = [&](const char* name, const arrow::Datum& values,
                          const cp::FunctionOptions& options) {
    return asDouble(cp::CallFunction(name, {values}, &options, &context));
  };
  FlightAnswers answers{};
  ARROW_ASSIGN_OR_RAISE(answers[0], callOn("mean", delay, skipping));
  ARROW_ASSIGN_OR_RAISE(answers[1], callOn("stddev", delay, ofSample));
  ARROW_ASSIGN_OR_RAISE(answers[2], callOn("max", delay, skipping));
  ARROW_ASSIGN_OR_RAISE(answers[3], callOn("count", delay, counting));
  ARROW_ASSIGN_OR_RAISE(answers[4], callOn("sum", isLate, skipping));
  answers[4] /= static_cast<double>(kept.table()->num_rows());
  ARROW_ASSIGN_OR_RAISE(answers[5], callOn("sum", kept.table()->column(2), skipping));
  return answers;
}

}  // namespace

FlightAnswers askArrow(const std::string& path) {
  const arrow::Result<FlightAnswers> answers = ask(path);
  if (!answers.ok()) {
    throw std::runtime_error(answers.status().ToString());
  }
  return *answers;
}

}  // namespace kv::bench
