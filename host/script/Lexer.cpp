#include "host/script/Lexer.h"

#include "util/Error.h"

#include <cctype>
#include <charconv>
#include <cstdio>

namespace quorel::host::script {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::string Describe(char c) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x21 && byte < 0x7f) {
        return std::string("character '") + c + "'";
    }
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "character 0x%02X", byte);
    return buffer;
}

} // namespace

Lexer::Lexer(std::string_view text, bool expressionMode)
    : m_text(text), m_expressionMode(expressionMode) {
    m_current = Scan();
}

void Lexer::Fail(int line, const std::string& detail) const {
    const std::string where =
        m_expressionMode ? "in the expression" : "on line " + std::to_string(line);
    throw Error(error_number::kSyntaxError, "Field calculator script",
                "Syntax error " + where + ": " + detail);
}

Token Lexer::Next() {
    Token token = std::move(m_current);
    m_current = Scan();
    return token;
}

void Lexer::SkipRestOfLine() {
    if (m_current.kind == TokenKind::kEndOfLine || m_current.kind == TokenKind::kEndOfText) {
        return;
    }
    while (m_position < m_text.size() && m_text[m_position] != '\n' && m_text[m_position] != '\r') {
        ++m_position;
    }
    m_current = Scan();
}

Token Lexer::Scan() {
    while (m_position < m_text.size() && IsBlank(m_text[m_position])) {
        ++m_position;
    }
    Token token;
    token.line = m_line;
    if (m_position >= m_text.size()) {
        token.kind = TokenKind::kEndOfText;
        return token;
    }
    const char c = m_text[m_position];
    if (c == '\'') {
        while (m_position < m_text.size() && m_text[m_position] != '\n' &&
               m_text[m_position] != '\r') {
            ++m_position;
        }
        return Scan();
    }
    if (c == '\r' || c == '\n') {
        ++m_position;
        if (c == '\r' && m_position < m_text.size() && m_text[m_position] == '\n') {
            ++m_position;
        }
        ++m_line;
        token.kind = TokenKind::kEndOfLine;
        return token;
    }
    if (IsDigit(c) ||
        (c == '.' && m_position + 1 < m_text.size() && IsDigit(m_text[m_position + 1]))) {
        return ScanNumber();
    }
    if (IsLetter(c)) {
        const std::size_t start = m_position;
        while (m_position < m_text.size() &&
               (IsLetter(m_text[m_position]) || IsDigit(m_text[m_position]) ||
                m_text[m_position] == '_')) {
            ++m_position;
        }
        token.kind = TokenKind::kName;
        token.spelling.assign(m_text.substr(start, m_position - start));
        token.text = token.spelling;
        for (char& letter : token.text) {
            letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
        }
        return token;
    }
    if (c == '[') {
        const std::size_t start = ++m_position;
        while (m_position < m_text.size() && m_text[m_position] != ']' &&
               m_text[m_position] != '\n' && m_text[m_position] != '\r') {
            ++m_position;
        }
        if (m_position >= m_text.size() || m_text[m_position] != ']') {
            Fail(m_line, "field name without closing ']'");
        }
        if (m_position == start) {
            Fail(m_line, "empty field name '[]'");
        }
        token.kind = TokenKind::kField;
        token.text.assign(m_text.substr(start, m_position - start));
        ++m_position;
        return token;
    }
    token.kind = TokenKind::kSymbol;
    const char next = m_position + 1 < m_text.size() ? m_text[m_position + 1] : '\0';
    if ((c == '<' && (next == '>' || next == '=')) || (c == '>' && next == '=')) {
        token.text = std::string{c, next};
        m_position += 2;
        return token;
    }
    switch (c) {
    case '=':
    case '<':
    case '>':
    case '+':
    case '-':
    case '*':
    case '/':
    case '\\':
    case '^':
    case '(':
    case ')':
    case ',':
        token.text = std::string(1, c);
        ++m_position;
        return token;
    case '"':
        Fail(m_line, "text strings are not supported");
    case '&':
        Fail(m_line, "'&' (text concatenation, hexadecimal numbers) is not supported");
    case ':':
        Fail(m_line, "several statements on one line (':') are not supported");
    case '_':
        Fail(m_line, "line continuation ('_') is not supported");
    default:
        Fail(m_line, "unexpected " + Describe(c));
    }
}

Token Lexer::ScanNumber() {
    Token token;
    token.kind = TokenKind::kNumber;
    token.line = m_line;
    const std::size_t start = m_position;
    const auto digits = [this] {
        while (m_position < m_text.size() && IsDigit(m_text[m_position])) {
            ++m_position;
        }
    };
    digits();
    if (m_position < m_text.size() && m_text[m_position] == '.') {
        ++m_position;
        digits();
    }
    if (m_position < m_text.size() && (m_text[m_position] == 'e' || m_text[m_position] == 'E')) {
        ++m_position;
        if (m_position < m_text.size() &&
            (m_text[m_position] == '+' || m_text[m_position] == '-')) {
            ++m_position;
        }
        const std::size_t exponentStart = m_position;
        digits();
        if (m_position == exponentStart) {
            Fail(m_line,
                 "invalid number '" + std::string(m_text.substr(start, m_position - start)) + "'");
        }
    }
    const std::string_view literal = m_text.substr(start, m_position - start);
    if (m_position < m_text.size() &&
        (IsLetter(m_text[m_position]) || m_text[m_position] == '_' || m_text[m_position] == '.')) {
        Fail(m_line, "invalid number '" + std::string(literal) + m_text[m_position] + "'");
    }
    // from_chars rounds correctly, so a literal reads back the very double that was printed.
    const auto result =
        std::from_chars(literal.data(), literal.data() + literal.size(), token.number);
    if (result.ec != std::errc{} || result.ptr != literal.data() + literal.size()) {
        Fail(m_line, "number out of range '" + std::string(literal) + "'");
    }
    token.text.assign(literal);
    return token;
}

} // namespace quorel::host::script
