#pragma once

#include <optional>
#include <string>

namespace quorel::test {

// A deliberately naive, line-by-line evaluator of the generated scripts, independent of the
// code under test: it re-reads the script text for every value. nullopt when Val stays Empty.
// Throws std::domain_error("Division by zero") like the calculator would.
std::optional<double> EvaluateScript(const std::string& script, const std::string& field, double x);

} // namespace quorel::test
