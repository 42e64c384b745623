#include "apps/quorel/Args.h"

#include "apps/quorel/CliTexts.h"

#include <cerrno>
#include <cstdlib>

namespace quorel::cli {
namespace {

bool LooksLikeNumber(const std::string& text) {
    if (text.size() < 2 || text[0] != '-') {
        return false;
    }
    const char c = text[1];
    return (c >= '0' && c <= '9') || c == '.' || c == ',';
}

} // namespace

Args::Args(const std::vector<std::string>& arguments, const std::vector<OptionSpec>& specs) {
    auto findLong = [&](const std::string& name) -> const OptionSpec* {
        for (const auto& option : specs) {
            if (option.longName == name) {
                return &option;
            }
        }
        return nullptr;
    };
    auto findShort = [&](char name) -> const OptionSpec* {
        for (const auto& option : specs) {
            if (option.shortName != '\0' && option.shortName == name) {
                return &option;
            }
        }
        return nullptr;
    };

    bool optionsEnded = false;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& arg = arguments[i];
        if (optionsEnded || arg.empty() || arg[0] != '-' || arg == "-" || LooksLikeNumber(arg)) {
            m_positionals.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        const OptionSpec* option = nullptr;
        std::optional<std::string> inlineValue;
        std::string shown = arg;
        if (arg.rfind("--", 0) == 0) {
            std::string name = arg.substr(2);
            const auto eq = name.find('=');
            if (eq != std::string::npos) {
                inlineValue = name.substr(eq + 1);
                name.resize(eq);
                shown = "--" + name;
            }
            option = findLong(name);
        } else if (arg.size() == 2) {
            option = findShort(arg[1]);
        }
        if (option == nullptr) {
            throw UsageError(CliMessage(cli_text::kUnknownOption, "unknown option %1", {shown}));
        }
        if (!option->takesValue) {
            if (inlineValue) {
                throw UsageError(
                    CliMessage(cli_text::kOptionTakesNoValue, "option %1 takes no value", {shown}));
            }
            m_values[option->longName] = "";
            continue;
        }
        if (!inlineValue) {
            if (i + 1 >= arguments.size()) {
                throw UsageError(
                    CliMessage(cli_text::kOptionNeedsValue, "option %1 needs a value", {shown}));
            }
            inlineValue = arguments[++i];
        }
        m_values[option->longName] = *inlineValue;
    }
}

std::optional<std::string> Args::Value(const std::string& longName) const {
    const auto it = m_values.find(longName);
    if (it == m_values.end()) {
        return std::nullopt;
    }
    return it->second;
}

std::string Args::Required(const std::string& longName) const {
    auto value = Value(longName);
    if (!value) {
        throw UsageError(CliMessage(cli_text::kMissingOption, "missing option --%1", {longName}));
    }
    return *value;
}

int ParseIntOption(const std::string& text, const std::string& optionName) {
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || end == nullptr || *end != '\0' || errno != 0 || value < -32768 ||
        value > 32767) {
        throw UsageError(CliMessage(cli_text::kOptionNeedsWholeNumber,
                                    "option --%1 needs a whole number, not '%2'",
                                    {optionName, text}));
    }
    return static_cast<int>(value);
}

} // namespace quorel::cli
