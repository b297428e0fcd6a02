// The command line of the agent.
#pragma once

#include <optional>
#include <string>

struct Options {
    std::string root;  ///< Installation root; empty: the environment tells it.
    std::string conf;  ///< Configuration sub-directory; empty: the library's standard.
    int seconds = -1;  ///< How long to run; negative: until a signal.
};

/// Prints what the user asks for (--help, --version), or what is wrong with the command line.
/// @param options receives what the command line says
/// @return the status to end with at once, if any
std::optional<int> ParseOptions(int argc, char* argv[], Options& options);

/// Makes the paths below `options.root` known to the library, through the environment
/// variables that it reads. Variables that are set already stay, except for the root.
/// @param reason receives what is wrong with the root on failure, one line
bool ApplyRoot(const Options& options, std::string& reason);
