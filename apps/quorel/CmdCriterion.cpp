// "quorel script" and "quorel membership": the generated script and direct degrees.

#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "apps/quorel/CriterionOptions.h"
#include "apps/quorel/Subcommand.h"

#include "criterion/FuzzyKind.h"
#include "criterion/Membership.h"
#include "criterion/Parameters.h"
#include "criterion/Script.h"
#include "util/Error.h"
#include "util/NumberText.h"
#include "util/StringFunctions.h"

#include <cmath>
#include <iostream>
#include <optional>
#include <string>

namespace quorel::cli {

const std::vector<OptionSpec> kCriterionOptions = {
    {"kind", 'k', true}, {"a", 'a', true}, {"b", 'b', true},
    {"c", 'c', true},    {"d", 'd', true}, {"field", 'f', true},
};

// Reads the parameters as the dialog reads its boxes (a missing option is an empty box) and
// completes them for the kind.
Criterion ReadCriterion(const Args& args) {
    Criterion criterion;
    criterion.kind = ParseIntOption(args.Required("kind"), "kind");
    if (criterion.kind < 0 || criterion.kind > 5) {
        throw UsageError(CliMessage(cli_text::kKindOutOfRange, "option --kind takes 0 to 5, not %1",
                                    {std::to_string(criterion.kind)}));
    }
    criterion.a = criterion::ParseNumberText(args.Value("a").value_or(""), criterion::kDefaultA);
    criterion.b = criterion::ParseNumberText(args.Value("b").value_or(""), criterion::kDefaultBCD);
    criterion.c = criterion::ParseNumberText(args.Value("c").value_or(""), criterion::kDefaultBCD);
    criterion.d = criterion::ParseNumberText(args.Value("d").value_or(""), criterion::kDefaultBCD);
    criterion::CompleteParameters(criterion.kind, criterion.a, criterion.b, criterion.c,
                                  criterion.d);
    return criterion;
}

bool CheckOrder(const Criterion& c) {
    if (criterion::CheckParameterOrder(c.a, c.b, c.c, c.d)) {
        return true;
    }
    std::cerr << criterion::ParameterOrderMessage(CliTexts(), c.a, c.b, c.c, c.d) << "\n";
    return false;
}

namespace {

int RunScript(const std::vector<std::string>& arguments) {
    const Args args(arguments, kCriterionOptions);
    if (!args.Positionals().empty()) {
        throw UsageError(CliMessage(cli_text::kUnexpectedArgument, "unexpected argument '%1'",
                                    {args.Positionals().front()}));
    }
    // Parameters out of order are refused before the field is asked for, as the refusal does
    // not depend on it.
    const Criterion c = ReadCriterion(args);
    if (!CheckOrder(c)) {
        return kExitRefused;
    }
    const std::string field = args.Required("field");
    if (const auto script = criterion::BuildPreExpression(c.kind, field, c.a, c.b, c.c, c.d)) {
        std::cout << *script << std::flush;
    }
    return 0;
}

int RunMembership(const std::vector<std::string>& arguments) {
    const Args args(arguments, kCriterionOptions);
    const Criterion c = ReadCriterion(args);
    std::optional<criterion::MembershipFunction> degree;
    bool failed = false;

    // A failing value is reported and the others still get their degree.
    auto printDegree = [&](const std::string& text) {
        auto value = util::ParseDecimal(text, '.');
        if (!value) {
            value = util::ParseDecimal(text, ',');
        }
        if (!value) {
            throw UsageError(CliMessage(cli_text::kNotANumber, "not a number: '%1'", {text}));
        }
        try {
            if (!degree) {
                degree.emplace(c.kind, c.a, c.b, c.c, c.d);
            }
            const double result = (*degree)(*value);
            std::cout << (std::isnan(result) ? std::string() : util::FormatRoundTrip(result))
                      << "\n";
        } catch (const Error& e) {
            std::cout.flush();
            std::cerr << e.Description() << "\n";
            failed = true;
        }
    };

    if (!args.Positionals().empty()) {
        for (const auto& value : args.Positionals()) {
            printDegree(value);
        }
    } else {
        std::string line;
        while (std::getline(std::cin, line)) {
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            printDegree(line);
        }
    }
    return failed ? 1 : 0;
}

} // namespace

const Subcommand& ScriptCommand() {
    static const Subcommand command{
        "script", "print the field calculator's script of a criterion",
        "Usage: quorel script --kind K [-a TEXT] [-b TEXT] [-c TEXT] [-d TEXT] --field F\n\n"
        "Prints the field calculator's script (lines joined by CR LF) for the criterion of kind K\n"
        "(1 singleton, 2 triangle, 3 rising ramp, 4 falling ramp, 5 trapezoid) on field F.\n"
        "Parameters are read as the dialog reads its boxes: either decimal mark, a missing one\n"
        "counts as an empty box. Kind 0 prints nothing. Parameters out of order print the\n"
        "refusal on standard error and exit with status 2.\n",
        RunScript};
    return command;
}

const Subcommand& MembershipCommand() {
    static const Subcommand command{
        "membership", "print degrees of membership of values",
        "Usage: quorel membership --kind K [-a TEXT] [-b TEXT] [-c TEXT] [-d TEXT] [--] "
        "[VALUE...]\n\n"
        "Prints the degree of membership (17 significant digits) of each VALUE, or of each line\n"
        "of standard input when no value is given, as the criterion's script computes it.\n"
        "Use -- before negative values. A criterion whose script divides by zero prints\n"
        "\"Division by zero\" on standard error and exits with status 1.\n",
        RunMembership};
    return command;
}

} // namespace quorel::cli
