#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace quorel::host::script {

enum class TokenKind { kEndOfText, kEndOfLine, kNumber, kName, kField, kSymbol };

struct Token {
    TokenKind kind = TokenKind::kEndOfText;
    std::string text;     // a name in lower case, a field's name without brackets, a symbol
    std::string spelling; // a name as written, for messages
    double number = 0.0;
    int line = 1;
};

// Splits a script into tokens, one line at a time. Line ends are CR LF, LF or CR; comments
// (from ' to the end of the line) are dropped. A character outside the language is a syntax
// error naming its line.
class Lexer {
public:
    // expressionMode: the text is the calculator's expression, reported as such in errors.
    Lexer(std::string_view text, bool expressionMode);

    const Token& Peek() const { return m_current; }
    Token Next();
    // Drops the rest of the current line (a Rem comment); the next token is the line's end.
    void SkipRestOfLine();

    [[noreturn]] void Fail(int line, const std::string& detail) const;

private:
    Token Scan();
    Token ScanNumber();

    std::string_view m_text;
    std::size_t m_position = 0;
    int m_line = 1;
    bool m_expressionMode;
    Token m_current;
};

} // namespace quorel::host::script
