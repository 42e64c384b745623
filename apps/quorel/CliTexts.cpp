#include "apps/quorel/CliTexts.h"

#include "apps/quorel/Args.h"
#include "apps/quorel/Installation.h"
#include "lang/StandaloneLanguage.h"
#include "util/MessageUi.h"

namespace quorel::cli {
namespace {

// The command line's counterpart of the definition dialog: boxes on standard error, texts
// beside the program.
lang::StandaloneLanguage& Language() {
    static util::ConsoleMessageUi ui;
    static lang::StandaloneLanguage language(ui, TextDatabaseFolder());
    return language;
}

} // namespace

const util::ITextSource& CliTexts() {
    return Language().Texts();
}

void SwitchCliLanguage(const std::string& code, bool remember) {
    if (!Language().Switch(code, remember)) {
        std::string available;
        for (const std::string& item : Language().Languages()) {
            available += (available.empty() ? "" : ", ") + item;
        }
        throw UsageError(CliMessage(cli_text::kUnknownLanguage,
                                    "unknown language '%1' (available: %2)", {code, available}));
    }
}

std::string CliMessage(std::int16_t id, const char* fallback,
                       const std::vector<std::string>& arguments) {
    std::string pattern = CliTexts().ResourceString(id);
    if (pattern.empty()) {
        pattern = fallback;
    }
    std::string message;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char next = i + 1 < pattern.size() ? pattern[i + 1] : '\0';
        if (pattern[i] == '%' && next >= '1' && next <= '9') {
            const auto index = static_cast<std::size_t>(next - '1');
            message += index < arguments.size() ? arguments[index] : std::string();
            ++i;
        } else {
            message += pattern[i];
        }
    }
    return message;
}

} // namespace quorel::cli
