#pragma once

#include "util/TextSource.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quorel::cli {

// The texts of the current language, loaded on first use from the text database beside the
// program in the language remembered in the user's settings (as the dialog loads them).
const util::ITextSource& CliTexts();

// Switches to code and, when remember, remembers it, as choosing it in the dialog's language
// list does. Throws UsageError when the text database offers no such language.
void SwitchCliLanguage(const std::string& code, bool remember = true);

// A message of the command line: text id in the current language with %1, %2... replaced by
// the arguments, or the English fallback when the database has no such text (an older or
// missing database), so that no message comes out empty.
std::string CliMessage(std::int16_t id, const char* fallback,
                       const std::vector<std::string>& arguments = {});

// Text ids of the command line's own messages.
namespace cli_text {
inline constexpr std::int16_t kUsage = 200;
inline constexpr std::int16_t kPurpose = 201;
inline constexpr std::int16_t kCommands = 202;
inline constexpr std::int16_t kCommandHelp = 203;
inline constexpr std::int16_t kUnknownCommand = 204;
inline constexpr std::int16_t kError = 205;
inline constexpr std::int16_t kUnknownLanguage = 206;
inline constexpr std::int16_t kLanguageNeedsCode = 207;
inline constexpr std::int16_t kUnknownOption = 208;
inline constexpr std::int16_t kOptionTakesNoValue = 209;
inline constexpr std::int16_t kOptionNeedsValue = 210;
inline constexpr std::int16_t kMissingOption = 211;
inline constexpr std::int16_t kOptionNeedsWholeNumber = 212;
inline constexpr std::int16_t kKindOutOfRange = 213;
inline constexpr std::int16_t kUnexpectedArgument = 214;
inline constexpr std::int16_t kNotANumber = 215;
inline constexpr std::int16_t kFieldAdded = 240;
inline constexpr std::int16_t kUnknownDialect = 290;
} // namespace cli_text

} // namespace quorel::cli
