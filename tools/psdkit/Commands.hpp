#pragma once
// The commands of the psdkit tool. Each takes the arguments after its name, writes its results
// and returns the exit status; failures are thrown (see Cli.hpp and Failure.hpp) and reported by
// main.
#include <span>
#include <string>

namespace psdkit::cli {

struct Command {
    const char* name;
    /// One line: the command's arguments, as shown after "usage: psdkit <name> ".
    const char* synopsis;
    /// What the command does and its options, shown by `psdkit <name> --help`.
    const char* help;
    int (*run)(std::span<const std::string> args);
};

int runInfo(std::span<const std::string> args);
int runExport(std::span<const std::string> args);
int runCreate(std::span<const std::string> args);
int runRewrite(std::span<const std::string> args);
int runDescriptors(std::span<const std::string> args);
int runCheck(std::span<const std::string> args);
int runRender(std::span<const std::string> args);

/// Every command, in the order `psdkit --help` lists them.
[[nodiscard]] std::span<const Command> commands();

} // namespace psdkit::cli
