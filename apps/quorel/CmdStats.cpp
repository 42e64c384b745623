// "quorel stats": what the "Stats" button of the dialog shows for a field of a layer (a
// shapefile, a GeoPackage's table), the distinct values first, then the summary, without a
// window.

#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "apps/quorel/SourceLayer.h"
#include "apps/quorel/Subcommand.h"

#include "criterion/FieldStatistics.h"
#include "source/Application.h"
#include "util/StringFunctions.h"

#include <iostream>

namespace quorel::cli {
namespace {

int Run(const std::vector<std::string>& arguments) {
    const Args args(arguments, {{"layer", 'l', true}});
    if (args.Positionals().size() < 2) {
        throw UsageError(args.Positionals().empty() ? "missing SOURCE" : "missing FIELD");
    }
    if (args.Positionals().size() > 2) {
        throw UsageError("unexpected argument '" + args.Positionals()[2] + "'");
    }
    auto app = std::make_shared<source::Application>();
    const auto layer = OpenCommandLayer(*app, args.Positionals()[0], args.Value("layer"));
    int marker = 0;
    const auto statistics =
        criterion::ComputeFieldStatistics(app.get(), layer->Name(), args.Positionals()[1],
                                          CliTexts(), util::DecimalSeparator(), marker);
    for (const std::string& line : statistics->lines) {
        std::cout << line << "\n";
    }
    // The summary's lines end in CR LF in the window; a terminal wants LF alone.
    std::string summary = statistics->summary;
    std::erase(summary, '\r');
    std::cout << "\n" << summary << "\n";
    return 0;
}

} // namespace

const Subcommand& StatsCommand() {
    static const Subcommand command{
        "stats", "show the statistics of a numeric field",
        "Usage: quorel stats SOURCE [--layer NAME] FIELD\n\n"
        "Prints what the dialog's statistics window shows for FIELD over all features of the\n"
        "layer (SOURCE a shapefile, or a GeoPackage or PG:\"dbname=...\" database whose table\n"
        "--layer names when it has several): its distinct values in ascending order, one per line "
        "(the single line\n"
        "\"Nb > 100\" when there are more than 100), an empty line, then the summary: minimum,\n"
        "maximum, mean, standard deviation, count and number of distinct values, in the\n"
        "language and with the decimal mark of the user's settings.\n\n"
        "Exit status: 0 done, 1 on an error (no such file or field), 64 on a wrong command "
        "line\n(a layer the source does not have, or none named in a source of several).\n",
        Run};
    return command;
}

} // namespace quorel::cli
