// "quorel sql": the criterion as one SQL expression.

#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "apps/quorel/CriterionOptions.h"
#include "apps/quorel/Subcommand.h"

#include "criterion/SqlExpression.h"

#include <iostream>
#include <string>

namespace quorel::cli {
namespace {

int RunSql(const std::vector<std::string>& arguments) {
    std::vector<OptionSpec> options = kCriterionOptions;
    options.push_back({"dialect", '\0', true});
    const Args args(arguments, options);
    if (!args.Positionals().empty()) {
        throw UsageError(CliMessage(cli_text::kUnexpectedArgument, "unexpected argument '%1'",
                                    {args.Positionals().front()}));
    }
    const std::string dialect = args.Required("dialect");
    if (dialect != criterion::kSqlDialectPostgresql && dialect != criterion::kSqlDialectSqlite) {
        throw UsageError(CliMessage(cli_text::kUnknownDialect,
                                    "option --dialect takes postgresql or sqlite, not '%1'",
                                    {dialect}));
    }
    // As "quorel script": parameters out of order are refused before the field is asked for.
    const Criterion c = ReadCriterion(args);
    if (!CheckOrder(c)) {
        return kExitRefused;
    }
    const std::string field = args.Required("field");
    std::cout << criterion::SqlExpression(dialect, c.kind, field, c.a, c.b, c.c, c.d) << "\n"
              << std::flush;
    return 0;
}

} // namespace

const Subcommand& SqlCommand() {
    static const Subcommand command{
        "sql", "print a criterion as one SQL expression",
        "Usage: quorel sql --dialect postgresql|sqlite --kind K [-a TEXT] [-b TEXT] [-c TEXT]\n"
        "                  [-d TEXT] --field F\n\n"
        "Prints the degree of the criterion of kind K on field F as one SQL expression of the\n"
        "dialect, giving bit for bit the degrees the field calculator's script stores, Null\n"
        "included (the singleton gives 1 for Null, the other shapes Null). Parameters are read\n"
        "and checked as 'quorel script' reads and checks them (status 2 when out of order).\n"
        "Where the script divides by zero, the expression fails when it is evaluated.\n",
        RunSql};
    return command;
}

} // namespace quorel::cli
