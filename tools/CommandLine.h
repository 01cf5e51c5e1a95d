/// The options of every program: one way to check them, to ask for help or the version, and to be wrong.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

/// Parses, and runs the callbacks of subcommands. False when help or the version was asked for and has been printed.
/// Throws UsageError for wrong options.
bool ParseCommandLine(CLI::App& app, int argc, const char* const* argv);

/// Decimal digits alone, within the limits; CLI11 by itself takes the nearest number for one that is too large.
CLI::Validator WholeNumber(uint64_t min, uint64_t max);

/// A decimal number within the limits, and no "nan".
CLI::Validator Decimal(double min, double max);

/// Comma-separated names of faults.
CLI::Validator FaultList();
