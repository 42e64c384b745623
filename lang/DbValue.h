#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace quorel::lang {

// A value read from the text database. Empty (no value at all, what a failed lookup yields and
// numeric callers read as 0) is distinct from Null (a cell or aggregate without a value).
struct DbNull {
    bool operator==(const DbNull&) const = default;
};
using DbValue = std::variant<std::monostate, DbNull, double, std::string>;

inline bool IsEmpty(const DbValue& value) {
    return std::holds_alternative<std::monostate>(value);
}
inline bool IsNull(const DbValue& value) {
    return std::holds_alternative<DbNull>(value);
}

// The conversions the loading code applies to database values. They raise the errors the
// component's reports name: "Invalid use of Null" (94), "Type mismatch" (13), "Overflow" (6).
// Empty converts to 0 and to the empty string.
std::string ValueToText(const DbValue& value, const std::string& source);
// Rounds to the nearest whole number, halves to even.
std::int16_t ValueToInt16(const DbValue& value, const std::string& source);
std::int32_t ValueToInt32(const DbValue& value, const std::string& source);

} // namespace quorel::lang
