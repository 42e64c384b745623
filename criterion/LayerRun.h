#pragma once

// The criterion run and the aggregation run on one layer of a host, with the windows' choices
// given as values: what the command line and the Python module share. The layer is made the
// chosen layer at position 0 of the focus map; for a criterion its numeric fields are listed and
// the field selected, as the dialog does.

#include "criterion/Aggregation.h"
#include "criterion/RunCriterion.h"

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::criterion {

struct LayerRunRequest {
    std::string field;
    int kind = 0;
    // The texts of the boxes a to d; nullopt is an empty box.
    std::array<std::optional<std::string>, 4> boxes;
    // The output name; nullopt for the dialog's proposal, "FZY_" and the field's name.
    std::optional<std::string> outName;
};

struct LayerRunResult {
    RunOutcome outcome = RunOutcome::Failed;
    // The field the run added, when it is done.
    std::string addedField;
};

// The layer's numeric fields, in field order, as the dialog lists them.
std::vector<std::string> NumericFields(const host::IFeatureLayer& layer);

// Runs the criterion (a field the layer does not list as numeric refuses it, text 131); boxes go to
// ui, as the dialog's do.
LayerRunResult RunOnLayer(const std::shared_ptr<host::IApplication>& app,
                          const host::IFeatureLayer& layer, const LayerRunRequest& request,
                          util::IMessageUi& ui, const util::ITextSource& texts);

struct LayerAggregationRequest {
    std::vector<std::string> fields;
    Aggregation aggregation;
    // The output name; nullopt for the default, FZY_AGG numbered.
    std::optional<std::string> outName;
};

// Runs the aggregation (see AggregationRun) on the layer, a shapefile's records kept beside it;
// its refusals and error reports go to ui.
LayerRunResult AggregateOnLayer(const std::shared_ptr<host::IApplication>& app,
                                const host::IFeatureLayer& layer,
                                const LayerAggregationRequest& request, util::IMessageUi& ui,
                                const util::ITextSource& texts);

} // namespace quorel::criterion
