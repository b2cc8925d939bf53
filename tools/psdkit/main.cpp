// psdkit: the command-line host of the psdkit library. It registers itself as the library's host
// application, routes the library's trace lines, dispatches to one command and turns failures
// into a message on stderr and an exit status.
#include <cstdio>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "Cli.hpp"
#include "Commands.hpp"
#include "Failure.hpp"
#include "psdkit/Version.hpp"
#include "psdkit/core/PSDError.hpp"
#include "psdkit/platform/PlatformError.hpp"
#include "psdkit/platform/image/ImageError.hpp"
#include "psdkit/platform/support/Diagnostics.hpp"
#include "psdkit/platform/support/HostApplication.hpp"

namespace psdkit::cli {

FailureReport describeFailure(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const PSDException& e) {
        const std::string name(e.error().name());
        const std::string detail = e.detail().empty() ? "" : ": " + e.detail();
        if (const auto text = e.error().userInfoValue(PSDErrorTextKey::failureReason)) {
            return {exitRefused, *text + " (" + name + ")" + detail};
        }
        return {exitRefused, "the library refused the file (" + name + ")" + detail};
    } catch (const image::ImageException& e) {
        return {exitRefused,
                "the image data cannot be decoded (" + std::string(image::name(e.error())) + ")"};
    } catch (const PlatformException& e) {
        return {exitRefused, std::string(e.what()) + " (" + e.code().category().name() + " " +
                                 std::to_string(e.code().value()) + ")"};
    } catch (const InputError& e) {
        return {exitRefused, e.what()};
    } catch (const IoError& e) {
        return {exitIoFailure, e.what()};
    } catch (const std::bad_alloc&) {
        return {exitRefused, "not enough memory"};
    } catch (const std::exception& e) {
        return {exitRefused, std::string("unexpected failure: ") + e.what()};
    } catch (...) {
        return {exitRefused, "unexpected failure"};
    }
}

namespace {

const Command* findCommand(const std::string& name)
{
    for (const Command& command : commands()) {
        if (name == command.name) {
            return &command;
        }
    }
    return nullptr;
}

void printOverview(std::FILE* out)
{
    std::fprintf(out, "usage: psdkit [--trace] <command> [arguments]\n"
                      "       psdkit --version | --help | <command> --help\n\n"
                      "Reads, inspects, exports and writes layered PSD and PSB documents.\n\ncommands:\n");
    for (const Command& command : commands()) {
        std::fprintf(out, "  %s %s\n", command.name, command.synopsis);
    }
    std::fprintf(out, "\n--trace sends the library's trace lines to stderr (off by default).\n"
                      "Exit status: 0 success, 1 usage error, 2 a file was refused (or a check failed),\n"
                      "3 a file could not be read or written.\n");
}

void configureHost(bool trace)
{
    HostApplication host;
    host.bundleIdentifier = "io.psdkit.cli";
    host.displayName = "psdkit";
    host.softwareName = "psdkit";
    host.softwareVersion = PSDKIT_VERSION;
    HostApplication::setCurrent(host);
    PSDError::initialize();
    if (trace) {
        setDiagnosticsSink([](std::string_view line) { std::cerr << line << '\n'; });
    } else {
        setDiagnosticsSink({});
    }
}

int run(std::vector<std::string> args)
{
    bool trace = false;
    std::erase_if(args, [&](const std::string& arg) {
        if (arg == "--trace") {
            trace = true;
            return true;
        }
        return false;
    });
    configureHost(trace);

    if (args.empty()) {
        printOverview(stderr);
        return exitUsage;
    }
    const std::string& first = args.front();
    if (first == "--version") {
        std::printf("psdkit %s\n", PSDKIT_VERSION);
        return exitSuccess;
    }
    if (first == "--help" || first == "-h" || first == "help") {
        if (args.size() > 1 && findCommand(args[1])) {
            const Command* command = findCommand(args[1]);
            std::printf("usage: psdkit %s %s\n\n%s", command->name, command->synopsis, command->help);
        } else {
            printOverview(stdout);
        }
        return exitSuccess;
    }
    const Command* command = findCommand(first);
    if (!command) {
        std::fprintf(stderr, "psdkit: unknown command '%s'\n\n", first.c_str());
        printOverview(stderr);
        return exitUsage;
    }
    const std::vector<std::string> rest(args.begin() + 1, args.end());
    for (const std::string& arg : rest) {
        if (arg == "--help" || arg == "-h") {
            std::printf("usage: psdkit %s %s\n\n%s", command->name, command->synopsis, command->help);
            return exitSuccess;
        }
    }
    try {
        return command->run(rest);
    } catch (const UsageError& e) {
        std::fprintf(stderr, "psdkit %s: %s\nusage: psdkit %s %s\n", command->name, e.what(), command->name,
                     command->synopsis);
        return exitUsage;
    } catch (const FileFailure& failure) {
        const FailureReport report = describeFailure(failure.cause());
        std::fprintf(stderr, "psdkit %s: %s: %s\n", command->name, failure.path().c_str(),
                     report.message.c_str());
        return report.exitStatus;
    } catch (...) {
        const FailureReport report = describeFailure(std::current_exception());
        std::fprintf(stderr, "psdkit %s: %s\n", command->name, report.message.c_str());
        return report.exitStatus;
    }
}

} // namespace
} // namespace psdkit::cli

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    const int status = psdkit::cli::run(std::move(args));
    if (std::fflush(stdout) != 0) {
        return psdkit::cli::exitIoFailure;
    }
    return status;
}
