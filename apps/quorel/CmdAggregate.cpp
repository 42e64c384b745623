// "quorel aggregate" and "quorel query": several criterion fields combined by a fuzzy operator,
// either stored as a new field (as the aggregation window's "Calculer" does) or used to select
// the features whose combined degree reaches a threshold (as the query window's "Sélectionner").

#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "apps/quorel/ExportModule.h"
#include "apps/quorel/SourceLayer.h"
#include "apps/quorel/Subcommand.h"

#include "criterion/Aggregation.h"
#include "criterion/LayerRun.h"
#include "criterion/Preview.h"
#include "source/Application.h"
#include "util/MessageUi.h"

#include <charconv>
#include <iostream>

namespace quorel::cli {
namespace {

constexpr int kExitRefused = 2;
constexpr int kExitFailed = 1;

constexpr std::int16_t kTextSelectedCount = 336;

const std::vector<OptionSpec> kAggregationOptions = {
    {"layer", 'l', true}, {"fields", 'f', true},  {"op", '\0', true},
    {"gamma", 'g', true}, {"weights", 'w', true},
};

std::vector<std::string> SplitList(const std::string& text) {
    std::vector<std::string> items;
    std::size_t start = 0;
    while (true) {
        const std::size_t comma = text.find(',', start);
        items.push_back(text.substr(start, comma - start));
        if (comma == std::string::npos) {
            return items;
        }
        start = comma + 1;
    }
}

// A number of the command line: '.' as decimal mark, since ',' separates the list's items.
double ParseNumber(const std::string& text) {
    double value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || result.ec != std::errc{} || result.ptr != text.data() + text.size()) {
        throw UsageError(CliMessage(cli_text::kNotANumber, "not a number: '%1'", {text}));
    }
    return value;
}

struct AggregationArguments {
    std::string source;
    std::vector<std::string> fields;
    criterion::Aggregation aggregation;
};

AggregationArguments ReadAggregation(const Args& args) {
    if (args.Positionals().empty()) {
        throw UsageError(CliMessage(273, "missing %1", {"SOURCE"}));
    }
    if (args.Positionals().size() > 1) {
        throw UsageError(CliMessage(cli_text::kUnexpectedArgument, "unexpected argument '%1'",
                                    {args.Positionals()[1]}));
    }
    AggregationArguments read;
    read.source = args.Positionals().front();
    read.fields = SplitList(args.Required("fields"));
    const std::string op = args.Required("op");
    std::optional<double> gamma;
    if (const auto text = args.Value("gamma")) {
        gamma = ParseNumber(*text);
    }
    // Weights that do not fit the operator or the fields are the aggregation's refusal (2).
    std::vector<double> weights;
    if (const auto text = args.Value("weights")) {
        for (const auto& item : SplitList(*text)) {
            weights.push_back(ParseNumber(item));
        }
    }
    try {
        read.aggregation = criterion::ReadAggregation(op, gamma, std::move(weights), CliTexts());
    } catch (const criterion::AggregationUsageError& error) {
        throw UsageError(error.what());
    }
    return read;
}

int RunAggregate(const std::vector<std::string>& arguments) {
    std::vector<OptionSpec> options = kAggregationOptions;
    options.push_back({"out", 'o', true});
    const Args args(arguments, options);
    const AggregationArguments read = ReadAggregation(args);

    const auto app = CommandApplication();
    const auto layer = OpenCommandLayer(*app, read.source, args.Value("layer"));
    util::ConsoleMessageUi ui;
    const auto result = criterion::AggregateOnLayer(
        app, *layer, {read.fields, read.aggregation, args.Value("out")}, ui, CliTexts());
    switch (result.outcome) {
    case criterion::RunOutcome::Done:
        std::cout << CliMessage(cli_text::kFieldAdded, "added field %1 to %2",
                                {result.addedField, read.source})
                  << "\n";
        return 0;
    case criterion::RunOutcome::Refused:
        return kExitRefused;
    case criterion::RunOutcome::Failed:
        break;
    }
    return kExitFailed;
}

int RunQuery(const std::vector<std::string>& arguments) {
    std::vector<OptionSpec> options = kAggregationOptions;
    options.push_back({"alpha", 'a', true});
    options.push_back({"save", 's', true});
    const Args args(arguments, options);
    const AggregationArguments read = ReadAggregation(args);
    const double alpha = ParseNumber(args.Required("alpha"));

    auto app = std::make_shared<source::Application>();
    const auto layer = OpenCommandLayer(*app, read.source, args.Value("layer"));
    const util::ITextSource& texts = CliTexts();
    auto refuse = [](const std::string& message) {
        std::cerr << "quorel query: " << message << "\n";
        return kExitRefused;
    };
    if (const auto refusal =
            criterion::CheckAggregation(read.aggregation, read.fields.size(), texts)) {
        return refuse(*refusal);
    }
    if (!(alpha >= 0 && alpha <= 1)) {
        return refuse(criterion::FillPlaceholders(
            texts.ResourceString(criterion::kTextAlphaOutOfRange), {args.Required("alpha")}));
    }
    if (const auto refusal =
            criterion::CheckInputFieldsExist(*layer->FeatureClass(), read.fields, texts)) {
        return refuse(*refusal);
    }
    const auto inputs = criterion::ReadAggregationInputs(*layer->Search(true), read.fields);
    if (const auto refusal = criterion::CheckInputRange(inputs, read.fields, texts)) {
        return refuse(*refusal);
    }
    const auto selected = criterion::SelectAtLeast(
        inputs.ids, criterion::CombinedDegrees(read.aggregation, inputs), alpha);
    std::string lines;
    for (const std::int64_t fid : selected) {
        lines += std::to_string(fid) + "\n";
    }
    std::cout << lines << std::flush;
    std::cerr << CliMessage(kTextSelectedCount, "%1 features selected",
                            {std::to_string(selected.size())})
              << "\n";
    if (const auto save = args.Value("save")) {
        ExportModule().saveFeaturesAsGeoPackage(read.source, args.Value("layer").value_or(""),
                                                selected, *save);
    }
    return 0;
}

} // namespace

const Subcommand& AggregateCommand() {
    static const Subcommand command{
        "aggregate", "combine criterion fields into a new field",
        "Usage: quorel aggregate SOURCE [--layer L] --fields F1,F2[,...]\n"
        "                        --op and|or|product|sum|gamma|mean|owa [--gamma G]\n"
        "                        [--weights W1,W2,...] [--out NAME]\n\n"
        "Adds a double field to the table of layer L of SOURCE (a shapefile, whose one layer is\n"
        "named after the file, a GeoPackage or a PostgreSQL database) and fills it with each\n"
        "feature's combination of the degrees held by the\n"
        "fields F1, F2...: and (minimum), or (maximum), product, sum (1 - the product of the\n"
        "1 - degrees), gamma (sum^G * product^(1-G), G in [0, 1]), mean (weighted by W1, W2...)\n"
        "or owa (the degrees from largest to smallest, weighted by W1, W2... in that order).\n"
        "A Null degree gives Null. Every value of the fields must lie in [0, 1]. The output is\n"
        "NAME, by default FZY_AGG, numbered (FZY_AGG1...) when the table has it. The run is\n"
        "recorded in NAME.fzy.json beside a shapefile, in the metadata tables of a GeoPackage\n"
        "and in the table quorel_aggregations of a PostGIS table's schema, with the field, its\n"
        "values and the record one transaction. Numbers take '.' as decimal mark.\n\n"
        "Exit status: 0 done, 2 refused (fields missing, not numeric or out of [0, 1], gamma\n"
        "out of [0, 1], weights not > 0 or not one per field, editing, a name in use),\n"
        "1 on a reported error, 64 on a wrong command line.\n",
        RunAggregate};
    return command;
}

const Subcommand& QueryCommand() {
    static const Subcommand command{
        "query", "select the features whose combined degree reaches a threshold",
        "Usage: quorel query SOURCE [--layer L] --fields F1,F2[,...]\n"
        "                    --op and|or|product|sum|gamma|mean|owa [--gamma G]\n"
        "                    [--weights W1,W2,...] --alpha A [--save OUT.gpkg]\n\n"
        "Combines the fields as \"quorel aggregate\" does, without changing SOURCE, and prints\n"
        "the FIDs of the features whose combined degree is at least A (in [0, 1]), one per line\n"
        "in ascending order, on standard output, and their count on standard error. --save\n"
        "also writes those features, geometry and attributes, as a new layer of the GeoPackage\n"
        "OUT.gpkg (created when missing), named after the source layer.\n\n"
        "Exit status: 0 done, 2 refused (as aggregate, or A out of [0, 1]), 1 on an error,\n"
        "64 on a wrong command line.\n",
        RunQuery};
    return command;
}

} // namespace quorel::cli
