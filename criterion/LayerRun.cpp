#include "criterion/LayerRun.h"

#include "criterion/AggregationRun.h"
#include "criterion/PlainRunDialog.h"
#include "errors/ErrorLog.h"
#include "fzy/IO_fzyext.h"

namespace quorel::criterion {
namespace {

// A run never shows the metadata window.
class NoInfoWindow final : public fzy::IInfoWindow {
public:
    void ShowModal(const std::string& /*text*/) override {}
};

// What choosing the layer in a window sets.
ComponentState ChosenLayerState(const std::shared_ptr<host::IApplication>& app,
                                const host::IFeatureLayer& layer) {
    ComponentState state;
    state.g_app = app;
    state.g_layer_name = layer.Name();
    state.g_layer_path = layer.FeatureClass()->Workspace()->PathName();
    state.g_layer_index = 0;
    return state;
}

} // namespace

std::vector<std::string> NumericFields(const host::IFeatureLayer& layer) {
    std::vector<std::string> names;
    const auto fields = layer.FeatureClass()->Fields();
    for (std::int32_t i = 0; i < fields->FieldCount(); ++i) {
        if (fields->Field(i)->Type() < host::kFieldTypeString) {
            names.push_back(fields->Field(i)->Name());
        }
    }
    return names;
}

LayerRunResult RunOnLayer(const std::shared_ptr<host::IApplication>& app,
                          const host::IFeatureLayer& layer, const LayerRunRequest& request,
                          util::IMessageUi& ui, const util::ITextSource& texts) {
    // The layer chosen in the dialog, and the numeric fields it lists.
    ComponentState state = ChosenLayerState(app, layer);
    state.kind = static_cast<std::int16_t>(request.kind);
    PlainRunDialog dialog;
    dialog.fieldList = NumericFields(layer);
    dialog.Select(request.field);
    for (std::size_t i = 0; i < 4; ++i) {
        dialog.boxes[i] = request.boxes[i].value_or("");
    }
    dialog.newName = request.outName.value_or(kProposedNamePrefix + request.field);

    NoInfoWindow window;
    fzy::IO_fzyext fzy(ui, texts, window, app);
    errors::ErrorLog log(ui);
    CriterionRun run(state, dialog, ui, texts, fzy, log);
    LayerRunResult result;
    result.outcome = run.RunCriterion();
    if (result.outcome == RunOutcome::Done) {
        const auto added = layer.FeatureClass()->Fields(); // the new field comes last
        result.addedField = added->Field(added->FieldCount() - 1)->Name();
    }
    return result;
}

LayerRunResult AggregateOnLayer(const std::shared_ptr<host::IApplication>& app,
                                const host::IFeatureLayer& layer,
                                const LayerAggregationRequest& request, util::IMessageUi& ui,
                                const util::ITextSource& texts) {
    ComponentState state = ChosenLayerState(app, layer);
    errors::ErrorLog log(ui);
    AggregationRun run(state, ui, texts, log);
    LayerRunResult result;
    result.outcome = run.Run({request.fields, request.aggregation, request.outName.value_or("")});
    result.addedField = run.OutputName();
    return result;
}

} // namespace quorel::criterion
