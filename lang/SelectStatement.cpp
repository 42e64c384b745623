#include "lang/SelectStatement.h"

#include <cctype>

namespace quorel::lang {
namespace {

class Scanner {
public:
    explicit Scanner(const std::string& text) : m_text(text) {}

    void SkipBlanks() {
        while (m_pos < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_pos]))) {
            ++m_pos;
        }
    }

    bool AtEnd() {
        SkipBlanks();
        return m_pos >= m_text.size();
    }

    bool Symbol(char c) {
        SkipBlanks();
        if (m_pos < m_text.size() && m_text[m_pos] == c) {
            ++m_pos;
            return true;
        }
        return false;
    }

    // A plain word or a bracketed name.
    std::optional<std::string> Name() {
        SkipBlanks();
        if (m_pos >= m_text.size()) {
            return std::nullopt;
        }
        if (m_text[m_pos] == '[') {
            const auto close = m_text.find(']', m_pos + 1);
            if (close == std::string::npos || close == m_pos + 1) {
                return std::nullopt;
            }
            std::string name = m_text.substr(m_pos + 1, close - m_pos - 1);
            m_pos = close + 1;
            return name;
        }
        const std::size_t start = m_pos;
        while (m_pos < m_text.size() &&
               (std::isalnum(static_cast<unsigned char>(m_text[m_pos])) || m_text[m_pos] == '_' ||
                static_cast<unsigned char>(m_text[m_pos]) >= 0x80)) {
            ++m_pos;
        }
        if (m_pos == start) {
            return std::nullopt;
        }
        return m_text.substr(start, m_pos - start);
    }

    std::size_t Position() const { return m_pos; }
    void Rewind(std::size_t position) { m_pos = position; }

private:
    const std::string& m_text;
    std::size_t m_pos = 0;
};

bool SameWord(const std::string& word, const char* keyword) {
    std::size_t i = 0;
    for (; keyword[i] != '\0'; ++i) {
        if (i >= word.size() || std::tolower(static_cast<unsigned char>(word[i])) !=
                                    static_cast<unsigned char>(keyword[i])) {
            return false;
        }
    }
    return i == word.size();
}

std::optional<SelectItem> Item(Scanner& scanner) {
    if (scanner.Symbol('*')) {
        return SelectItem{SelectItem::Kind::AllColumns, {}};
    }
    auto name = scanner.Name();
    if (!name) {
        return std::nullopt;
    }
    const std::size_t afterName = scanner.Position();
    if (scanner.Symbol('(')) {
        SelectItem item;
        if (SameWord(*name, "max")) {
            item.kind = SelectItem::Kind::Max;
        } else if (SameWord(*name, "min")) {
            item.kind = SelectItem::Kind::Min;
        } else if (SameWord(*name, "count")) {
            item.kind = SelectItem::Kind::Count;
        } else {
            return std::nullopt;
        }
        if (item.kind == SelectItem::Kind::Count && scanner.Symbol('*')) {
            // count(*) counts rows
        } else if (auto column = scanner.Name()) {
            item.column = *column;
        } else {
            return std::nullopt;
        }
        if (!scanner.Symbol(')')) {
            return std::nullopt;
        }
        return item;
    }
    scanner.Rewind(afterName);
    return SelectItem{SelectItem::Kind::Column, *name};
}

} // namespace

std::optional<SelectStatement> ParseSelect(const std::string& sql) {
    Scanner scanner(sql);
    auto keyword = scanner.Name();
    if (!keyword || !SameWord(*keyword, "select")) {
        return std::nullopt;
    }
    SelectStatement statement;
    do {
        auto item = Item(scanner);
        if (!item) {
            return std::nullopt;
        }
        statement.items.push_back(*item);
    } while (scanner.Symbol(','));
    keyword = scanner.Name();
    if (!keyword || !SameWord(*keyword, "from")) {
        return std::nullopt;
    }
    auto table = scanner.Name();
    if (!table) {
        return std::nullopt;
    }
    statement.table = *table;
    scanner.Symbol(';');
    if (!scanner.AtEnd()) {
        return std::nullopt;
    }
    return statement;
}

} // namespace quorel::lang
