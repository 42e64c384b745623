#include "apps/quorel/Args.h"
#include "apps/quorel/Subcommand.h"

#include "quorel/Version.h"
#include "util/Error.h"

#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace {

using quorel::cli::Subcommand;

std::vector<const Subcommand*> AllCommands() {
    return {
        &quorel::cli::ScriptCommand(),
        &quorel::cli::MembershipCommand(),
        &quorel::cli::FzyCommand(),
        &quorel::cli::MetaCommand(),
        &quorel::cli::RunCommand(),
    };
}

void PrintUsage(std::ostream& out) {
    out << "Usage: quorel [--version] [--help] COMMAND [ARGS...]\n\n"
           "Turns a numeric attribute of a polygon shapefile into a fuzzy classification "
           "criterion.\n\nCommands:\n";
    for (const Subcommand* command : AllCommands()) {
        std::string name = command->name;
        name.resize(std::max<std::size_t>(name.size(), 12), ' ');
        out << "  " << name << " " << command->summary << "\n";
    }
    out << "\nRun 'quorel COMMAND --help' for a command's options.\n";
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.empty()) {
        PrintUsage(std::cerr);
        return quorel::cli::kExitUsage;
    }
    const std::string first = arguments.front();
    if (first == "--version") {
        std::cout << quorel::kVersionText << "\n";
        return 0;
    }
    if (first == "--help" || first == "-h") {
        PrintUsage(std::cout);
        return 0;
    }
    for (const Subcommand* command : AllCommands()) {
        if (first != command->name) {
            continue;
        }
        arguments.erase(arguments.begin());
        for (const auto& arg : arguments) {
            if (arg == "--") {
                break;
            }
            if (arg == "--help" || arg == "-h") {
                std::cout << command->help;
                return 0;
            }
        }
        try {
            return command->run(arguments);
        } catch (const quorel::cli::UsageError& e) {
            std::cerr << "quorel " << command->name << ": " << e.what() << "\n";
            return quorel::cli::kExitUsage;
        } catch (const quorel::Error& e) {
            std::cerr << "quorel " << command->name << ": error " << e.Number() << ": "
                      << e.Description() << "\n";
            return 1;
        } catch (const std::exception& e) {
            std::cerr << "quorel " << command->name << ": " << e.what() << "\n";
            return 1;
        }
    }
    std::cerr << "quorel: unknown command '" << first << "' (see quorel --help)\n";
    return quorel::cli::kExitUsage;
}
