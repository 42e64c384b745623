#pragma once

// The criterion's options, read and checked alike by every command that takes one.

#include "apps/quorel/Args.h"

#include <vector>

namespace quorel::cli {

// --kind, -a to -d and --field.
extern const std::vector<OptionSpec> kCriterionOptions;

struct Criterion {
    int kind = 0;
    double a = 0, b = 0, c = 0, d = 0;
};

// Exit status of a refused order check.
inline constexpr int kExitRefused = 2;

// Reads the parameters as the dialog reads its boxes (a missing option is an empty box) and
// completes them for the kind; a kind outside 0 to 5 is a UsageError.
Criterion ReadCriterion(const Args& args);

// The order check; a refusal is printed on standard error.
bool CheckOrder(const Criterion& c);

} // namespace quorel::cli
