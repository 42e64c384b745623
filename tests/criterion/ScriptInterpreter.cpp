#include "ScriptInterpreter.h"

#include <cctype>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <vector>

namespace quorel::test {
namespace {

std::string Lower(std::string s) {
    for (char& c : s) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return s;
}

// Expressions: or-free conditions joined by "and", comparisons, + - * /, unary minus, numbers,
// [field], variables and parentheses. Values are doubles; conditions are 0 or 1.
class Expression {
public:
    Expression(std::string text, std::map<std::string, double>& vars, double x)
        : m_text(std::move(text)), m_vars(vars), m_x(x) {}

    double Parse() {
        const double v = And();
        Skip();
        if (m_pos != m_text.size()) {
            throw std::logic_error("trailing text: " + m_text.substr(m_pos));
        }
        return v;
    }

private:
    void Skip() {
        while (m_pos < m_text.size() && m_text[m_pos] == ' ') {
            ++m_pos;
        }
    }
    bool Eat(const std::string& token) {
        Skip();
        if (Lower(m_text.substr(m_pos, token.size())) == token) {
            m_pos += token.size();
            return true;
        }
        return false;
    }
    double And() {
        double v = Compare();
        while (Eat("and ")) {
            const double w = Compare();
            v = (v != 0 && w != 0) ? 1 : 0;
        }
        return v;
    }
    double Compare() {
        const double left = Sum();
        if (Eat("<>"))
            return left != Sum() ? 1 : 0;
        if (Eat("<="))
            return left <= Sum() ? 1 : 0;
        if (Eat(">="))
            return left >= Sum() ? 1 : 0;
        if (Eat("<"))
            return left < Sum() ? 1 : 0;
        if (Eat(">"))
            return left > Sum() ? 1 : 0;
        if (Eat("="))
            return left == Sum() ? 1 : 0;
        return left;
    }
    double Sum() {
        double v = Product();
        for (;;) {
            if (Eat("+")) {
                v = v + Product();
            } else if (Eat("-")) {
                v = v - Product();
            } else {
                return v;
            }
        }
    }
    double Product() {
        double v = Unary();
        for (;;) {
            if (Eat("*")) {
                v = v * Unary();
            } else if (Eat("/")) {
                const double divisor = Unary();
                if (divisor == 0) {
                    throw std::domain_error("Division by zero");
                }
                v = v / divisor;
            } else {
                return v;
            }
        }
    }
    double Unary() {
        if (Eat("-")) {
            return -Unary();
        }
        return Primary();
    }
    double Primary() {
        Skip();
        if (Eat("(")) {
            const double v = And();
            if (!Eat(")")) {
                throw std::logic_error("missing )");
            }
            return v;
        }
        if (m_pos < m_text.size() && m_text[m_pos] == '[') {
            m_pos = m_text.find(']', m_pos) + 1;
            return m_x;
        }
        const char* begin = m_text.c_str() + m_pos;
        if (std::isdigit(static_cast<unsigned char>(*begin)) != 0) {
            char* end = nullptr;
            const double v = std::strtod(begin, &end);
            m_pos += static_cast<std::size_t>(end - begin);
            return v;
        }
        std::size_t end = m_pos;
        while (end < m_text.size() && std::isalpha(static_cast<unsigned char>(m_text[end])) != 0) {
            ++end;
        }
        const std::string name = Lower(m_text.substr(m_pos, end - m_pos));
        m_pos = end;
        if (!m_vars.count(name))
            throw std::logic_error("unknown variable '" + name + "' in " + m_text);
        return m_vars.at(name);
    }

    std::string m_text;
    std::map<std::string, double>& m_vars;
    double m_x;
    std::size_t m_pos = 0;
};

std::string Trim(const std::string& s) {
    const auto first = s.find_first_not_of(' ');
    if (first == std::string::npos) {
        return {};
    }
    return s.substr(first, s.find_last_not_of(' ') - first + 1);
}

} // namespace

std::optional<double> EvaluateScript(const std::string& script, const std::string& field,
                                     double x) {
    (void)field;
    std::vector<std::string> lines;
    std::size_t start = 0;
    for (;;) {
        const auto end = script.find("\r\n", start);
        lines.push_back(script.substr(start, end == std::string::npos ? end : end - start));
        if (end == std::string::npos) {
            break;
        }
        start = end + 2;
    }

    std::map<std::string, double> vars;
    std::optional<double> val;
    // One level of if/else is all the generated scripts use.
    bool inIf = false, taking = true;
    for (const auto& raw : lines) {
        const std::string line = Trim(raw);
        const std::string lower = Lower(line);
        if (line.empty() || lower.rfind("dim ", 0) == 0) {
            continue;
        }
        if (lower.rfind("if ", 0) == 0) {
            const auto thenPos = lower.rfind(" then");
            Expression condition(line.substr(3, thenPos - 3), vars, x);
            inIf = true;
            taking = condition.Parse() != 0;
            continue;
        }
        if (lower == "else") {
            taking = !taking;
            continue;
        }
        if (lower == "end if") {
            inIf = false;
            taking = true;
            continue;
        }
        if (inIf && !taking) {
            continue;
        }
        const auto eq = line.find('=');
        const std::string name = Lower(Trim(line.substr(0, eq)));
        Expression value(line.substr(eq + 1), vars, x);
        const double v = value.Parse();
        vars[name] = v;
        if (name == "val") {
            val = v;
        }
    }
    return val;
}

} // namespace quorel::test
