// "quorel run": the criterion run on a map whose only layer is the given shapefile, with the
// layer and the field chosen as the dialog would choose them.

#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "apps/quorel/Subcommand.h"

#include "criterion/LayerRun.h"
#include "host/shapefile/Application.h"
#include "util/MessageUi.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <unistd.h>

namespace quorel::cli {
namespace {

constexpr int kExitRefused = 2;
constexpr int kExitFailed = 1;

const std::vector<OptionSpec> kRunOptions = {
    {"field", 'f', true}, {"kind", 'k', true}, {"a", 'a', true},   {"b", 'b', true},
    {"c", 'c', true},     {"d", 'd', true},    {"out", 'o', true},
};

// Shows the calculator's progress on a terminal as a percentage on one line.
void ShowProgress(double fraction) {
    if (fraction < 0) {
        std::cerr << "\r\033[K" << std::flush;
        return;
    }
    std::cerr << "\r" << static_cast<int>(std::floor(fraction * 100)) << " %" << std::flush;
}

int Run(const std::vector<std::string>& arguments) {
    const Args args(arguments, kRunOptions);
    if (args.Positionals().size() != 1) {
        throw UsageError(args.Positionals().empty()
                             ? "missing SHAPEFILE"
                             : "unexpected argument '" + args.Positionals()[1] + "'");
    }
    const std::string field = args.Required("field");
    const int kind = ParseIntOption(args.Required("kind"), "kind");
    if (kind < 0 || kind > 5) {
        throw UsageError("option --kind takes 0 to 5, not " + std::to_string(kind));
    }

    auto app = std::make_shared<host::shapefile::Application>();
    if (isatty(STDERR_FILENO)) {
        app->Bar()->SetProgressListener(ShowProgress);
    }
    const auto layer = app->AddShapefileLayer(args.Positionals().front());

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
        "run", "compute a criterion field on a shapefile",
        "Usage: quorel run SHAPEFILE --field F --kind K [-a TEXT] [-b TEXT] [-c TEXT] [-d TEXT]\n"
        "                  [--out NAME]\n\n"
        "Adds a double field to the shapefile's table and fills it with each feature's degree of\n"
        "membership of field F in the criterion of kind K (0 none, 1 singleton, 2 triangle,\n"
        "3 rising ramp, 4 falling ramp, 5 trapezoid), then records the criterion in the\n"
        "shapefile's metadata file (.fzy). The output name is NAME, by default FZY_ and F;\n"
        "a name longer than 10 characters, or a default one over 10 bytes of the table's\n"
        "encoding, is cut and numbered to be unique. Parameters are read\n"
        "as the dialog reads its boxes. Messages go to standard error; progress too when it is\n"
        "a terminal.\n\n"
        "Exit status: 0 done, 2 refused (no such numeric field, parameters out of order, "
        "editing,\n"
        "an output name the table or the metadata file cannot hold, a full metadata file),\n"
        "1 on a reported error, 64 on a wrong command line.\n",
        Run};
    return command;
}

} // namespace quorel::cli
