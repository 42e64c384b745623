#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "apps/quorel/Subcommand.h"

#include "quorel/Version.h"
#include "util/Error.h"

#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace {

using quorel::cli::CliMessage;
using quorel::cli::Subcommand;
namespace cli_text = quorel::cli::cli_text;

std::vector<const Subcommand*> AllCommands() {
    return {
        &quorel::cli::ScriptCommand(),     &quorel::cli::SqlCommand(),
        &quorel::cli::MembershipCommand(), &quorel::cli::RunCommand(),
        &quorel::cli::FzyCommand(),        &quorel::cli::MetaCommand(),
        &quorel::cli::StatsCommand(),      &quorel::cli::PreviewCommand(),
        &quorel::cli::AggregateCommand(),  &quorel::cli::QueryCommand(),
        &quorel::cli::RegisterCommand(),
    };
}

void PrintUsage(std::ostream& out) {
    out << CliMessage(cli_text::kUsage,
                      "Usage: quorel [--version] [--help] [--lang CODE] COMMAND [ARGS...]")
        << "\n\n"
        << CliMessage(cli_text::kPurpose,
                      "Turns a numeric attribute of a polygon layer (shapefile, GeoPackage) "
                      "into a fuzzy classification criterion.")
        << "\n\n"
        << CliMessage(cli_text::kCommands, "Commands:") << "\n";
    for (const Subcommand* command : AllCommands()) {
        std::string name = command->name;
        name.resize(std::max<std::size_t>(name.size(), 12), ' ');
        out << "  " << name << " " << command->summary << "\n";
    }
    out << "\n"
        << CliMessage(cli_text::kCommandHelp,
                      "Run 'quorel COMMAND --help' for a command's options.")
        << "\n";
}

// Takes the global option --lang CODE (or --lang=CODE) out of the arguments, wherever it stands
// before "--", and returns its code.
std::optional<std::string> TakeLanguageOption(std::vector<std::string>& arguments) {
    std::optional<std::string> code;
    for (std::size_t i = 0; i < arguments.size();) {
        const std::string& arg = arguments[i];
        if (arg == "--") {
            break;
        }
        if (arg == "--lang") {
            if (i + 1 >= arguments.size()) {
                throw quorel::cli::UsageError(CliMessage(cli_text::kLanguageNeedsCode,
                                                         "option --lang needs a language code"));
            }
            code = arguments[i + 1];
            arguments.erase(arguments.begin() + static_cast<std::ptrdiff_t>(i),
                            arguments.begin() + static_cast<std::ptrdiff_t>(i) + 2);
        } else if (arg.rfind("--lang=", 0) == 0) {
            code = arg.substr(7);
            arguments.erase(arguments.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
    return code;
}

// --help or -h anywhere before "--".
bool AsksForHelp(const std::vector<std::string>& arguments) {
    for (const std::string& arg : arguments) {
        if (arg == "--") {
            break;
        }
        if (arg == "--help" || arg == "-h") {
            return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<std::string> arguments(argv + 1, argv + argc);
    try {
        if (const auto code = TakeLanguageOption(arguments)) {
            // Help is read in the language asked for, which is not remembered for it.
            quorel::cli::SwitchCliLanguage(*code, !AsksForHelp(arguments));
            if (arguments.empty()) {
                return 0; // "quorel --lang en" only switches and remembers
            }
        }
    } catch (const quorel::cli::UsageError& e) {
        std::cerr << "quorel: " << e.what() << "\n";
        return quorel::cli::kExitUsage;
    }
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
            std::cerr << "quorel " << command->name << ": "
                      << CliMessage(cli_text::kError, "error %1: %2",
                                    {std::to_string(e.Number()), e.Description()})
                      << "\n";
            return 1;
        } catch (const std::exception& e) {
            std::cerr << "quorel " << command->name << ": " << e.what() << "\n";
            return 1;
        }
    }
    std::cerr << "quorel: "
              << CliMessage(cli_text::kUnknownCommand, "unknown command '%1' (see quorel --help)",
                            {first})
              << "\n";
    return quorel::cli::kExitUsage;
}
