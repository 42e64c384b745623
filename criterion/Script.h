#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quorel::criterion {

// The field calculator's pre-expression for a kind, with the completed parameters printed by
// the general number conversion (period as decimal mark, so the script stays readable whatever
// the user's settings). Lines are joined by CR LF, none after the last. No script for kind 0 or
// an unknown kind.
std::optional<std::string> BuildPreExpression(int kind, const std::string& field, double a,
                                              double b, double c, double d);

// A script's lines as the calculator takes them: joined by CR LF, none after the last.
std::string JoinScriptLines(const std::vector<std::string>& lines);

// The calculator's expression: the variable the script assigns.
inline constexpr const char* kCalculatorExpression = "Val";

} // namespace quorel::criterion
