#include "util/StringFunctions.h"

#include <array>
#include <cctype>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <langinfo.h>
#include <locale.h>

namespace quorel::util {
namespace {

std::optional<char> g_decimalMark;

bool IsBlank(char c) {
    return c == ' ';
}

std::string_view TrimBlanks(std::string_view text) {
    while (!text.empty() && IsBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && IsBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string UserLocaleName() {
    for (const char* variable : {"LC_ALL", "LC_NUMERIC", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return "C";
}

// Only the C library knows a locale's mark (es_MX and es_US use a period, es_ES a comma). A
// locale that is not installed is what setlocale would refuse: the program runs in the C
// locale, so its period it is, without a word.
char MarkFromLocale() {
    const std::string name = UserLocaleName();
    locale_t loc = newlocale(LC_NUMERIC_MASK, name.c_str(), nullptr);
    if (loc == nullptr) {
        return '.';
    }
    const char* radix = nl_langinfo_l(RADIXCHAR, loc);
    const char mark = (radix != nullptr && radix[0] == ',') ? ',' : '.';
    freelocale(loc);
    return mark;
}

} // namespace

std::string TrimLineEnds(std::string_view text) {
    text = TrimBlanks(text);
    while (!text.empty() && (text.front() == '\r' || text.front() == '\n' || text.front() == ' ')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) {
        text.remove_suffix(1);
    }
    return std::string(text);
}

std::string ValueAfterKey(std::string_view text, std::string_view key, std::string_view delimiter,
                          bool acceptEnd, std::string_view defaultValue) {
    std::string value;
    const auto keyPos = text.find(key);
    if (keyPos != std::string_view::npos) {
        const auto start = keyPos + key.size();
        const auto end = text.find(delimiter, start);
        if (end != std::string_view::npos) {
            value = TrimLineEnds(text.substr(start, end - start));
        } else if (acceptEnd) {
            value = TrimLineEnds(text.substr(start));
        }
    }
    if (value.empty() && !defaultValue.empty()) {
        return std::string(defaultValue);
    }
    return value;
}

char DecimalSeparator() {
    if (!g_decimalMark) {
        g_decimalMark = MarkFromLocale();
    }
    return *g_decimalMark;
}

char OtherDecimalMark() {
    return DecimalSeparator() == ',' ? '.' : ',';
}

void SetDecimalSeparator(std::optional<char> mark) {
    g_decimalMark = mark;
}

std::string LocalizeDecimal(const std::optional<std::string>& value) {
    if (!value) {
        return {};
    }
    std::string text(TrimBlanks(*value));
    const char other = OtherDecimalMark();
    const char mark = DecimalSeparator();
    for (char& c : text) {
        if (c == other) {
            c = mark;
        }
    }
    return text;
}

std::optional<double> ParseDecimal(std::string_view text, char decimalMark) {
    text = TrimBlanks(text);
    std::string normal;
    normal.reserve(text.size());
    std::size_t i = 0;
    auto digits = [&] {
        std::size_t n = 0;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])) != 0) {
            normal += text[i++];
            ++n;
        }
        return n;
    };
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
        negative = text[i] == '-';
        ++i;
    }
    std::size_t mantissaDigits = digits();
    if (i < text.size() && text[i] == decimalMark) {
        normal += '.';
        ++i;
        mantissaDigits += digits();
    }
    if (mantissaDigits == 0) {
        return std::nullopt;
    }
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        normal += 'e';
        ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
            normal += text[i++];
        }
        if (digits() == 0) {
            return std::nullopt;
        }
    }
    if (i != text.size()) {
        return std::nullopt;
    }
    double value = 0;
    const auto [end, error] = std::from_chars(normal.data(), normal.data() + normal.size(), value);
    if (error != std::errc{} || end != normal.data() + normal.size()) {
        return std::nullopt;
    }
    return negative ? -value : value;
}

} // namespace quorel::util
