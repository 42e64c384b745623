#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "apps/quorel/SourceLayer.h"
#include "apps/quorel/Subcommand.h"

#include "fzy/AggregationRecords.h"
#include "fzy/IO_fzyext.h"
#include "source/Application.h"
#include "source/OpenSource.h"
#include "util/Error.h"
#include "util/MessageUi.h"
#include "util/StringFunctions.h"
#include "util/TextSource.h"

#include <iostream>

namespace quorel::cli {
namespace {

// The metadata window, as text on standard output.
class ConsoleInfoWindow final : public fzy::IInfoWindow {
public:
    void ShowModal(const std::string& text) override {
        std::string shown;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (!(text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n')) {
                shown += text[i];
            }
        }
        std::cout << shown << "\n";
    }
};

// Boxes on standard error; remembers whether any was shown, for the exit status.
class CountingMessageUi final : public util::IMessageUi {
public:
    void MessageBox(const std::string& text, util::MessageIcon icon,
                    const std::optional<std::string>& title = std::nullopt) override {
        ++boxes;
        std::cout.flush();
        m_console.MessageBox(text, icon, title);
    }
    void Beep() override { m_console.Beep(); }
    void SetBusy(bool busy) override { m_console.SetBusy(busy); }
    int boxes = 0;

private:
    util::ConsoleMessageUi m_console;
};

constexpr std::int16_t kTextNothingRecorded = 153;

// A database keeps its records in its own tables: the criterion record of the field's column,
// shown as the metadata file's number entry is, or the aggregation that made it.
int ShowDatabaseRecord(const std::string& source, const std::optional<std::string>& layerName,
                       const std::string& field) {
    const auto app = std::make_shared<source::Application>();
    const auto layer = OpenCommandLayer(*app, source, layerName);
    const auto records = std::dynamic_pointer_cast<host::ICriterionRecords>(layer->FeatureClass());
    const auto record = records ? records->Record(field) : std::nullopt;
    const auto aggregation =
        records && !record
            ? fzy::DescribeAggregationOf(records->AggregationRecords(), field, CliTexts())
            : std::nullopt;
    ConsoleInfoWindow window;
    window.ShowModal(
        record ? fzy::FormatNumberDescription(CliTexts(), util::DecimalSeparator(), *record, source)
               : aggregation.value_or(CliTexts().ResourceString(kTextNothingRecorded)));
    return 0;
}

int RunMeta(const std::vector<std::string>& arguments) {
    const Args args(arguments, {{"layer", 'l', true}});
    if (args.Positionals().size() != 2) {
        throw UsageError("expected SOURCE FIELD");
    }
    const std::string& shapefile = args.Positionals()[0];
    const std::string& field = args.Positionals()[1];
    if (source::IsGeoPackageSource(shapefile) || source::IsPostgresSource(shapefile)) {
        return ShowDatabaseRecord(shapefile, args.Value("layer"), field);
    }
    if (args.Value("layer")) {
        CheckLayerChoice(shapefile, args.Value("layer"));
    }
    const auto slash = shapefile.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : shapefile.substr(0, slash);
    std::string layerName = slash == std::string::npos ? shapefile : shapefile.substr(slash + 1);

    CountingMessageUi ui;
    ConsoleInfoWindow window;
    // The metadata button's operations never reach the host: none is needed.
    fzy::IO_fzyext io(ui, CliTexts(), window);

    // As the metadata button does, with the shapefile as the chosen layer.
    int step = 0;
    try {
        step = 1;
        const bool recorded = io.fzy_io_openread(folder, layerName);
        step = 2;
        const std::string& text = field;
        step = 3;
        const bool foundNumber = recorded && io.fzy_io_numberinfo(text);
        step = 4;
        const bool foundRecord = recorded && io.fzy_io_recordinfo(text, "");
        step = 5;
        if (!foundNumber && !foundRecord) {
            // An aggregated field of a shapefile is recorded beside the .fzy, in its JSON
            // sidecar.
            io.SetInfoText(
                fzy::DescribeAggregationOf(fzy::AggregationSidecar(folder, layerName).Records(),
                                           field, CliTexts())
                    .value_or(CliTexts().ResourceString(kTextNothingRecorded)));
        }
        io.fzy_io_showinfo();
        if (recorded) {
            io.fzy_io_close();
        }
    } catch (const Error& error) {
        ui.MessageBox(std::to_string(error.Number()) + "  " + error.Description() +
                          " Sum_table Debug=" + std::to_string(step),
                      util::MessageIcon::None);
    }
    return ui.boxes == 0 ? 0 : 1;
}

} // namespace

const Subcommand& MetaCommand() {
    static const Subcommand command{
        "meta", "Show what the metadata file records about a field",
        "Usage: quorel meta SOURCE [--layer NAME] FIELD\n\n"
        "Shows what the metadata window would show for FIELD, as the dialog's metadata button\n"
        "does with the layer of SOURCE as the chosen layer: the description of the last number\n"
        "entry of that output field, or of its record entry, or of the aggregation that made it,\n"
        "or text 153 when nothing is recorded. For a shapefile only the .fzy file and the\n"
        "aggregations' SHAPEFILE.fzy.json are read, never written nor made: the shapefile itself\n"
        "need not exist, and SHAPEFILE.shp in any letter case has its metadata in SHAPEFILE.fzy.\n"
        "A GeoPackage (.gpkg) keeps its records in its metadata tables, a PostgreSQL database\n"
        "(PG:\"dbname=... host=...\") in the tables quorel_criteria and quorel_aggregations of\n"
        "the layer's schema, read there; --layer names the table when there are several. Texts by "
        "id are empty until\n"
        "the text database is loaded. Exit status 1 when an error was reported, 64 on a wrong\n"
        "command line.\n",
        RunMeta};
    return command;
}

} // namespace quorel::cli
