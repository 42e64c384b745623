#pragma once

#include <string>

namespace quorel::criterion {

inline constexpr const char* kSqlDialectSqlite = "sqlite";
inline constexpr const char* kSqlDialectPostgresql = "postgresql";

// The degree of a criterion as one SQL expression over the field, giving bit for bit what the
// generated script stores: the script's comparisons and operations in its order, on literals
// printed with its 15 digits and read as double precision; Null (and, in PostgreSQL, NaN, which
// the script also takes for Null) gives 1 with the singleton and Null otherwise; kind 0 gives
// Null. a, b, c, d are the completed parameters. Where the script fails for every feature
// (line 4 or 6 divides by zero or overflows), the expression fails when it is evaluated:
// PostgreSQL raises its own "division by zero" or "value out of range: overflow", and SQLite,
// whose arithmetic gives Null or infinity instead, raises a JSON path error naming the
// script's error. dialect is kSqlDialectSqlite or kSqlDialectPostgresql; another dialect or a
// kind outside 0 to 5 throws std::invalid_argument.
std::string SqlExpression(const std::string& dialect, int kind, const std::string& field, double a,
                          double b, double c, double d);

// An identifier in double quotes, inner quotes doubled, as both dialects read it.
std::string QuoteSqlIdentifier(const std::string& name);

} // namespace quorel::criterion
