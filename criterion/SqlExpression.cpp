#include "criterion/SqlExpression.h"

#include "criterion/FuzzyKind.h"
#include "criterion/Membership.h"
#include "util/NumberText.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>

namespace quorel::criterion {
namespace {

// A value and the SQL that computes it, so that the generator can foresee what the engine will
// compute from the same literals.
struct Term {
    std::string sql;
    double value = 0;
};

// 10^k for 0 <= k <= 18 as an integer literal, which both engines convert exactly.
std::string PowerOfTenDigits(int k) {
    return "1" + std::string(static_cast<std::size_t>(k), '0');
}

class SqlWriter {
public:
    explicit SqlWriter(const std::string& dialect) {
        if (dialect == kSqlDialectPostgresql) {
            m_postgresql = true;
        } else if (dialect != kSqlDialectSqlite) {
            throw std::invalid_argument("unknown SQL dialect: " + dialect);
        }
    }

    bool Postgresql() const { return m_postgresql; }

    std::string Cast(const std::string& sql) const {
        return "CAST(" + sql + (m_postgresql ? " AS double precision)" : " AS REAL)");
    }

    // A parameter as the script writes it (15 digits) and reads it back.
    Term Literal(double parameter) const {
        const std::string text = util::FormatNumber(parameter);
        const double value = AsScriptLiteral(parameter);
        // PostgreSQL reads decimals exactly (its numeric type goes to double precision through
        // strtod). SQLite 3.40 reads about one decimal in 5,000 one unit off in the last place,
        // so there the 15 digits are written as a quotient that rounds once, exactly as strtod.
        return {m_postgresql ? Cast(text) : ExactSqliteLiteral(text, value), value};
    }

    Term Number(int whole) const {
        return {Cast(std::to_string(whole)), static_cast<double>(whole)};
    }

    std::string Value(const std::string& field) const {
        const std::string value = Cast(QuoteSqlIdentifier(field));
        // The script engine takes a NaN for Null; only PostgreSQL can store one.
        return m_postgresql ? "NULLIF(" + value + ", " + Cast("'NaN'") + ")" : value;
    }

    // SQL that fails with the script's error wherever it is evaluated.
    std::string Failure(const std::string& failingSql, const std::string& description) const {
        if (m_postgresql) {
            return failingSql; // PostgreSQL's own arithmetic raises the error.
        }
        return "json_extract('{}', '" + description + "')";
    }

private:
    // text is FormatNumber's: an optional sign, digits with an optional point, an optional
    // exponent.
    std::string ExactSqliteLiteral(const std::string& text, double value) const {
        const bool negative = !text.empty() && text[0] == '-';
        const std::size_t e = text.find('E');
        const std::string mantissa =
            text.substr(negative ? 1 : 0, e == std::string::npos ? e : e - (negative ? 1 : 0));
        int exponent = e == std::string::npos ? 0 : std::stoi(text.substr(e + 1));
        std::string digits;
        const std::size_t point = mantissa.find('.');
        if (point == std::string::npos) {
            digits = mantissa;
        } else {
            digits = mantissa.substr(0, point) + mantissa.substr(point + 1);
            exponent -= static_cast<int>(mantissa.size() - point - 1);
        }
        digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
        const std::string sign = negative ? "-" : "";
        const std::string significand = Cast(sign + digits);
        if (exponent >= 0 && exponent + static_cast<int>(digits.size()) <= 18) {
            return Cast(sign + digits + std::string(static_cast<std::size_t>(exponent), '0'));
        }
        if (exponent >= -22 && exponent <= 22) {
            // 10^k is exact in double precision up to 10^22.
            const int k = exponent < 0 ? -exponent : exponent;
            const std::string power = k <= 18 ? Cast(PowerOfTenDigits(k))
                                              : "(" + Cast(PowerOfTenDigits(18)) + " * " +
                                                    Cast(PowerOfTenDigits(k - 18)) + ")";
            return "(" + significand + (exponent < 0 ? " / " : " * ") + power + ")";
        }
        return ExactBinaryLiteral(value);
    }

    // value as an odd integer times a power of two: each step by 2^62 is exact.
    std::string ExactBinaryLiteral(double value) const {
        int exponent = 0;
        const double fraction = std::frexp(value, &exponent);
        auto mantissa = static_cast<std::int64_t>(std::ldexp(fraction, 53));
        exponent -= 53;
        while (mantissa % 2 == 0 && mantissa != 0) {
            mantissa /= 2;
            ++exponent;
        }
        std::string sql = Cast(std::to_string(mantissa));
        while (exponent != 0) {
            const int step = exponent > 0 ? std::min(exponent, 62) : std::max(exponent, -62);
            const std::string power =
                Cast(std::to_string(std::int64_t{1} << (step > 0 ? step : -step)));
            sql = "(" + sql + (step > 0 ? " * " : " / ") + power + ")";
            exponent -= step;
        }
        return sql;
    }

    bool m_postgresql = false;
};

// Line 4 or 6 of the script: 1/(p - q), or the error it raises.
struct Rate {
    Term term;
    std::optional<std::string> error;
};

Rate ScriptRate(const SqlWriter& sql, const Term& p, const Term& q) {
    const double largest = std::numeric_limits<double>::max();
    const double difference = p.value - q.value;
    const Term one = sql.Number(1);
    Rate rate;
    rate.term.sql = "(" + one.sql + " / (" + p.sql + " - " + q.sql + "))";
    rate.term.value = 1.0 / difference;
    if (!(std::fabs(difference) <= largest)) {
        rate.error = "Overflow";
    } else if (difference == 0.0) {
        rate.error = "Division by zero";
    } else if (!(std::fabs(rate.term.value) <= largest)) {
        rate.error = "Overflow";
    }
    return rate;
}

// The script's ramp x*R + (1 - (p*R)), R a rate. PostgreSQL refuses a product that underflows
// to zero ("value out of range: underflow") where the script takes the zero, and a zero product
// added to 1 - p*R leaves it unchanged: such products are written as their zero.
std::string Ramp(const SqlWriter& sql, const std::string& x, const Term& rate, const Term& p) {
    const Term one = sql.Number(1);
    const Term zero = sql.Number(0);
    std::string constantProduct = "(" + p.sql + " * " + rate.sql + ")";
    if (sql.Postgresql() && p.value != 0.0 && p.value * rate.value == 0.0) {
        constantProduct = zero.sql;
    }
    const std::string fac = "(" + one.sql + " - " + constantProduct + ")";
    std::string product = "(" + x + " * " + rate.sql + ")";
    if (sql.Postgresql()) {
        // The smallest magnitude whose product with the rate is not zero: products grow with
        // the magnitude, and positive doubles are ordered as their bit patterns.
        const double r = std::fabs(rate.value);
        std::uint64_t low = 0;                                      // product zero
        std::uint64_t high = std::bit_cast<std::uint64_t>(1.0 / r); // product about 1
        while (high - low > 1) {
            const std::uint64_t middle = low + (high - low) / 2;
            (std::bit_cast<double>(middle) * r == 0.0 ? low : high) = middle;
        }
        const double bound = std::bit_cast<double>(high);
        if (bound > std::numeric_limits<double>::denorm_min()) {
            const std::string literal = sql.Cast(util::FormatRoundTrip(bound));
            product = "CASE WHEN " + x + " > -" + literal + " AND " + x + " < " + literal +
                      " THEN " + zero.sql + " ELSE " + product + " END";
        }
    }
    return "(" + product + " + " + fac + ")";
}

} // namespace

std::string QuoteSqlIdentifier(const std::string& name) {
    std::string quoted = "\"";
    for (const char ch : name) {
        quoted += ch;
        if (ch == '"') {
            quoted += '"';
        }
    }
    return quoted + "\"";
}

std::string SqlExpression(const std::string& dialect, int kind, const std::string& field, double a,
                          double b, double c, double d) {
    const SqlWriter sql(dialect);
    if (kind == kNoKind) {
        return sql.Cast("NULL"); // no script: Val stays Empty
    }
    if (!IsShapeKind(kind)) {
        throw std::invalid_argument("no criterion of kind " + std::to_string(kind));
    }
    const std::string x = sql.Value(field);
    const Term A = sql.Literal(a), B = sql.Literal(b), C = sql.Literal(c), D = sql.Literal(d);
    const std::string zero = sql.Number(0).sql;
    const std::string one = sql.Number(1).sql;
    auto when = [&](const std::string& condition, const std::string& degree) {
        return " WHEN " + condition + " THEN " + degree;
    };
    auto cmp = [&](const char* op, const Term& t) { return x + " " + op + " " + t.sql; };

    if (kind == Singleton) {
        return "CASE" + when(cmp("<>", A), zero) + " ELSE " + one + " END";
    }

    // Lines 4 and 6: the rates, computed for every feature, whose failure fails them all.
    Rate rateA, rateB;
    switch (kind) {
    case Triangle:
    case RisingRamp:
        rateA = ScriptRate(sql, B, A);
        rateB = ScriptRate(sql, B, C);
        break;
    case FallingRamp:
        rateA = ScriptRate(sql, C, D);
        rateB = ScriptRate(sql, B, C);
        break;
    default:
        rateA = ScriptRate(sql, B, A);
        rateB = ScriptRate(sql, C, D);
        break;
    }
    for (const Rate* rate : {&rateA, &rateB}) {
        if (rate->error) {
            return sql.Failure(rate->term.sql, *rate->error);
        }
    }

    // The script's statements run in order and a later one overwrites the degree, so the
    // CASE lists them from the last.
    switch (kind) {
    case Triangle:
        return "CASE" + when(cmp(">", C), zero) +
               when(cmp(">", B) + " AND " + cmp("<=", C), Ramp(sql, x, rateB.term, B)) +
               when(cmp("=", B), one) +
               when(cmp(">=", A) + " AND " + cmp("<", B), Ramp(sql, x, rateA.term, B)) +
               when(cmp("<", A), zero) + " END";
    case RisingRamp:
        return "CASE" + when(cmp(">=", B), one) +
               when(cmp(">=", A) + " AND " + cmp("<=", B), Ramp(sql, x, rateA.term, B)) +
               when(cmp("<=", A), zero) + " END";
    case FallingRamp:
        return "CASE" + when(cmp(">=", D), zero) +
               when(cmp(">=", C) + " AND " + cmp("<=", D), Ramp(sql, x, rateA.term, C)) +
               when(cmp("<=", C), one) + " END";
    default:
        return "CASE" + when(cmp(">", D), zero) +
               when(cmp(">=", C) + " AND " + cmp("<=", D), Ramp(sql, x, rateB.term, C)) +
               when(cmp(">=", B) + " AND " + cmp("<=", C), one) +
               when(cmp(">=", A) + " AND " + cmp("<=", B), Ramp(sql, x, rateA.term, B)) +
               when(cmp("<=", A), zero) + " END";
    }
}

} // namespace quorel::criterion
