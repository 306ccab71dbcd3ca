#pragma once

#include <array>
#include <string>

/// One query over the flights in two versions: with this library and with plain Arrow code.
namespace kv::bench {

/// mean, std, max and count of dep_delay, mean(arr_delay > 60) and sum(distance), all where
/// origin == "JFK".
using FlightAnswers = std::array<double, 6>;

/// Path of the table: the environment's KV_DATA, or data/, with flights.csv.
std::string flightsPath();

/// As a user of the library writes it: one session, one pass.
FlightAnswers askOurselves(const std::string& path);

/// As it is written with Arrow alone: its CSV reader on the columns that are needed, its filter,
/// its aggregates; one thread. Errors: std::runtime_error with Arrow's message.
FlightAnswers askArrow(const std::string& path);

/// Equal except for rounding in the last digits.
bool isSameAnswer(const FlightAnswers& a, const FlightAnswers& b);

}  // namespace kv::bench
