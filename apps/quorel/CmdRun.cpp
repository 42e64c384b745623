// "quorel run": the criterion run on a map whose only layer is the given source's layer (a
// shapefile, a GeoPackage's table), with the layer and the field chosen as the dialog would
// choose them.

#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "apps/quorel/SourceLayer.h"
#include "apps/quorel/Subcommand.h"

#include "criterion/LayerRun.h"
#include "source/Application.h"
#include "util/MessageUi.h"

#include <algorithm>
#include <iostream>

namespace quorel::cli {
namespace {

constexpr int kExitRefused = 2;
constexpr int kExitFailed = 1;

const std::vector<OptionSpec> kRunOptions = {
    {"field", 'f', true}, {"kind", 'k', true}, {"a", 'a', true},   {"b", 'b', true},
    {"c", 'c', true},     {"d", 'd', true},    {"out", 'o', true}, {"layer", 'l', true},
};

int Run(const std::vector<std::string>& arguments) {
    const Args args(arguments, kRunOptions);
    if (args.Positionals().size() != 1) {
        throw UsageError(args.Positionals().empty()
                             ? "missing SOURCE"
                             : "unexpected argument '" + args.Positionals()[1] + "'");
    }
    const std::string field = args.Required("field");
    const int kind = ParseIntOption(args.Required("kind"), "kind");
    if (kind < 0 || kind > 5) {
        throw UsageError("option --kind takes 0 to 5, not " + std::to_string(kind));
    }

    const auto app = CommandApplication();
    const auto layer = OpenCommandLayer(*app, args.Positionals().front(), args.Value("layer"));

    criterion::LayerRunRequest request;
    request.field = field;
    request.kind = kind;
    const char* boxes[] = {"a", "b", "c", "d"};
    for (std::size_t i = 0; i < 4; ++i) {
        request.boxes[i] = args.Value(boxes[i]);
    }
    request.outName = args.Value("out");
    const auto numeric = criterion::NumericFields(*layer);
    if (std::find(numeric.begin(), numeric.end(), field) == numeric.end()) {
        std::cerr << "quorel run: " << layer->Name() << " has no numeric field " << field << "\n";
    }

    util::ConsoleMessageUi ui;
    const auto result = criterion::RunOnLayer(app, *layer, request, ui, CliTexts());
    switch (result.outcome) {
    case criterion::RunOutcome::Done:
        std::cout << CliMessage(cli_text::kFieldAdded, "added field %1 to %2",
                                {result.addedField, args.Positionals().front()})
                  << "\n";
        return 0;
    case criterion::RunOutcome::Refused:
        return kExitRefused;
    case criterion::RunOutcome::Failed:
        break;
    }
    return kExitFailed;
}

} // namespace

const Subcommand& RunCommand() {
    static const Subcommand command{
        "run", "compute a criterion field on a shapefile, GeoPackage or PostGIS layer",
        "Usage: quorel run SOURCE [--layer NAME] --field F --kind K [-a TEXT] [-b TEXT]\n"
        "                  [-c TEXT] [-d TEXT] [--out NAME]\n\n"
        "Adds a double field to the layer's table and fills it with each feature's degree of\n"
        "membership of field F in the criterion of kind K (0 none, 1 singleton, 2 triangle,\n"
        "3 rising ramp, 4 falling ramp, 5 trapezoid), then records the criterion. SOURCE is a\n"
        "shapefile (the record goes to its metadata file, .fzy) or a GeoPackage (.gpkg: the\n"
        "record goes to the file's metadata tables, and the whole run is one transaction) or a\n"
        "PostgreSQL database, PG:\"dbname=... host=... port=... user=...\" (the server fills\n"
        "the field in one transaction; the record goes to the table quorel_criteria);\n"
        "--layer names the table, and may be left out when the source has only one.\n"
        "The output name is NAME, by default FZY_ and F; in a shapefile a name longer than 10\n"
        "characters, or a default one over 10 bytes of the table's encoding, is cut and\n"
        "numbered to be unique. Parameters are read as the dialog reads its boxes. Messages go\n"
        "to standard error; progress too when it is a terminal.\n\n"
        "Exit status: 0 done, 2 refused (no such numeric field, parameters out of order, "
        "editing,\n"
        "an output name the table or the metadata file cannot hold, a full metadata file),\n"
        "1 on a reported error, 64 on a wrong command line (a layer the source does not have,\n"
        "or none named in a source of several).\n",
        Run};
    return command;
}

} // namespace quorel::cli
