// "quorel preview": what the dialog's live preview shows, without a window: how many features a
// criterion will give 0, a degree strictly between 0 and 1, 1 and Null, and the preview's
// picture. The parameters are read and refused as "quorel run" reads and refuses them.

#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "apps/quorel/ExportModule.h"
#include "apps/quorel/SourceLayer.h"
#include "apps/quorel/Subcommand.h"

#include "criterion/Membership.h"
#include "criterion/Parameters.h"
#include "criterion/Preview.h"
#include "source/Application.h"
#include "util/Error.h"
#include "util/StringFunctions.h"

#include <iostream>
#include <optional>

namespace quorel::cli {
namespace {

constexpr int kExitRefused = 2;
constexpr int kExitFailed = 1;

// Text ids of this command's messages.
constexpr std::int16_t kTextNoNumericField = 271;
constexpr std::int16_t kTextPictureNotWritten = 272;
constexpr std::int16_t kTextMissingArgument = 273;

const std::vector<OptionSpec> kPreviewOptions = {
    {"layer", 'l', true}, {"kind", 'k', true}, {"a", 'a', true},    {"b", 'b', true},
    {"c", 'c', true},     {"d", 'd', true},    {"png", '\0', true},
};

bool HasNumericField(const host::IFeatureClass& table, const std::string& name) {
    const auto fields = table.Fields();
    const std::int32_t index = fields->FindField(name);
    return index >= 0 && fields->Field(index)->Type() >= host::kFieldTypeSmallInteger &&
           fields->Field(index)->Type() <= host::kFieldTypeDouble;
}

int Run(const std::vector<std::string>& arguments) {
    const Args args(arguments, kPreviewOptions);
    const auto& positionals = args.Positionals();
    if (positionals.size() < 2) {
        throw UsageError(CliMessage(kTextMissingArgument, "missing %1",
                                    {positionals.empty() ? "SOURCE" : "FIELD"}));
    }
    if (positionals.size() > 2) {
        throw UsageError(CliMessage(cli_text::kUnexpectedArgument, "unexpected argument '%1'",
                                    {positionals[2]}));
    }
    const std::string& source = positionals[0];
    const std::string& field = positionals[1];
    const int kind = ParseIntOption(args.Required("kind"), "kind");
    if (kind < 0 || kind > 5) {
        throw UsageError(CliMessage(cli_text::kKindOutOfRange, "option --kind takes 0 to 5, not %1",
                                    {std::to_string(kind)}));
    }

    auto app = std::make_shared<source::Application>();
    const auto layer = OpenCommandLayer(*app, source, args.Value("layer"));

    // The run's checks, in the run's order: the field, then the parameters.
    if (!HasNumericField(*layer->FeatureClass(), field)) {
        std::cerr << "quorel preview: "
                  << CliMessage(kTextNoNumericField, "%1 has no numeric field %2",
                                {layer->Name(), field})
                  << "\n";
        return kExitRefused;
    }
    double a = criterion::ParseNumberText(args.Value("a").value_or(""), criterion::kDefaultA);
    double b = criterion::ParseNumberText(args.Value("b").value_or(""), criterion::kDefaultBCD);
    double c = criterion::ParseNumberText(args.Value("c").value_or(""), criterion::kDefaultBCD);
    double d = criterion::ParseNumberText(args.Value("d").value_or(""), criterion::kDefaultBCD);
    criterion::CompleteParameters(kind, a, b, c, d);
    if (!criterion::CheckParameterOrder(a, b, c, d)) {
        std::cerr << criterion::ParameterOrderMessage(CliTexts(), a, b, c, d) << "\n";
        return kExitRefused;
    }

    const auto values = criterion::ReadFieldValues(*layer->Search(false), field);
    // A script that fails for every feature leaves the run's field Null, and the run reports
    // the error: so does the preview.
    std::optional<criterion::MembershipFunction> degree;
    std::optional<Error> failure;
    try {
        degree.emplace(kind, a, b, c, d);
    } catch (const Error& error) {
        failure = error;
    }
    criterion::DegreeCounts counts;
    if (degree) {
        counts = criterion::CountDegrees(*degree, *values);
    } else {
        counts.null = values->FeatureCount();
    }
    std::cout << "zero " << counts.zero << "\n"
              << "partial " << counts.partial << "\n"
              << "one " << counts.one << "\n"
              << "null " << counts.null << "\n"
              << std::flush;

    int status = 0;
    if (failure) {
        std::cerr << "quorel preview: "
                  << CliMessage(cli_text::kError, "error %1: %2",
                                {std::to_string(failure->Number()), failure->Description()})
                  << "\n";
        status = kExitFailed;
    }
    if (const auto png = args.Value("png")) {
        // The dialog's picture of the same boxes.
        const std::array<std::string, 4> boxes = {
            args.Value("a").value_or(""), args.Value("b").value_or(""),
            args.Value("c").value_or(""), args.Value("d").value_or("")};
        const criterion::Histogram histogram =
            criterion::MakeHistogram(*values, criterion::kPreviewHistogramBins);
        const criterion::PreviewFigure figure = criterion::MakePreviewFigure(
            field, &*values, &histogram, criterion::ReadPreviewCriterion(kind, boxes), CliTexts(),
            util::DecimalSeparator());
        if (!ExportModule().writePreviewPng(figure, *png)) {
            std::cerr << "quorel preview: "
                      << CliMessage(kTextPictureNotWritten, "cannot write the picture %1", {*png})
                      << "\n";
            status = kExitFailed;
        }
    }
    return status;
}

} // namespace

const Subcommand& PreviewCommand() {
    static const Subcommand command{
        "preview", "count the degrees a criterion will give, and draw them",
        "Usage: quorel preview SOURCE [--layer L] FIELD --kind K [-a TEXT] [-b TEXT] [-c TEXT]\n"
        "                      [-d TEXT] [--png FILE]\n\n"
        "Prints how many features of layer L of SOURCE (a shapefile, whose one layer is named\n"
        "after the file, or a GeoPackage, a layer per table; --layer may be left out when the\n"
        "source has one layer) the criterion of kind K on FIELD will\n"
        "give degree 0, a degree strictly between 0 and 1, degree 1 and Null, as \"quorel run\"\n"
        "would write them, on four lines: zero N, partial N, one N, null N. With --png, also\n"
        "writes the dialog's preview picture (800 x 500): the histogram of FIELD's values, the\n"
        "criterion's curve over it, its break points and the counts. Parameters are read and\n"
        "refused as \"quorel run\" reads and refuses them.\n\n"
        "Exit status: 0 done, 2 refused (no such numeric field, parameters out of order),\n"
        "1 on an error (the criterion's computation fails: every degree is then Null), 64 on a\n"
        "wrong command line (a layer the source does not hold, or none named in a source of\n"
        "several).\n",
        Run};
    return command;
}

} // namespace quorel::cli
