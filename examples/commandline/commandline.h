// What the command lines of the programs have in common.
#pragma once

#include <optional>
#include <string>

#include <CLI/CLI.hpp>

namespace commandline {

constexpr int kWrongUsage = 2;

/// A command line that knows --help, which begins with "usage: <program> <arguments>", and
/// --version. Of an option that is there several times the last one counts.
class Parser : public CLI::App {
public:
    Parser(const std::string& program, const std::string& arguments, const std::string& description);

    /// Prints the help or the version if that is asked for, and the help on standard error when
    /// something is wrong.
    /// @return the status to end with at once, if any
    std::optional<int> Parse(int argc, char* argv[]);
};

/// Refuses "".
CLI::Validator NotEmpty();

}  // namespace commandline
