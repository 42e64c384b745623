#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quorel::util {

// Removes leading and trailing blanks, then any CR, LF or blank at the start and any CR or LF
// at the end (blanks uncovered at the end stay).
std::string TrimLineEnds(std::string_view text);

// The text after the first occurrence of key, up to delimiter (or the end of the text when
// acceptEnd), trimmed with TrimLineEnds; defaultValue when that is empty.
std::string ValueAfterKey(std::string_view text, std::string_view key, std::string_view delimiter,
                          bool acceptEnd, std::string_view defaultValue = {});

// The user's decimal mark, '.' or ',', as the C library gives it for the locale (LC_ALL,
// LC_NUMERIC, LANG), found on first use and kept; '.' (the C locale's) when that locale is not
// installed. Tests and the command line may set it instead.
char DecimalSeparator();
// The other mark: '.' when the user's mark is ',', otherwise ','.
char OtherDecimalMark();
// Sets the user's decimal mark; nullopt forgets it, so the locale decides again on next use.
void SetDecimalSeparator(std::optional<char> mark);

// Null gives ""; otherwise the trimmed text with every other decimal mark replaced by the user's.
std::string LocalizeDecimal(const std::optional<std::string>& value);

// Reads a number written with the given decimal mark: optional sign, digits with at most one
// mark, optional exponent; blanks around it are allowed. nullopt for anything else.
std::optional<double> ParseDecimal(std::string_view text, char decimalMark);

} // namespace quorel::util
