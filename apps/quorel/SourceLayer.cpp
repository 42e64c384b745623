#include "apps/quorel/SourceLayer.h"

#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "source/Application.h"
#include "source/OpenSource.h"

#include <algorithm>

namespace quorel::cli {
namespace {

constexpr std::int16_t kTextNoSuchLayer = 270;
constexpr std::int16_t kTextSeveralLayers = 274;

[[noreturn]] void RefuseChoice(const source::LayerChoiceError& refused) {
    if (refused.Asked().empty()) {
        throw UsageError(CliMessage(kTextSeveralLayers,
                                    "%1 holds several layers: name one with --layer (layers: %2)",
                                    {refused.Source(), refused.LayerList()}));
    }
    throw UsageError(CliMessage(kTextNoSuchLayer, "no layer '%1' in %2 (layers: %3)",
                                {refused.Asked(), refused.Source(), refused.LayerList()}));
}

} // namespace

std::shared_ptr<host::IFeatureLayer> OpenCommandLayer(source::Application& app,
                                                      const std::string& source,
                                                      const std::optional<std::string>& layer) {
    try {
        return source::OpenSourceLayer(app, source, layer.value_or(""));
    } catch (const source::LayerChoiceError& refused) {
        RefuseChoice(refused);
    }
}

void CheckLayerChoice(const std::string& source, const std::optional<std::string>& layer) {
    const auto layers = source::SourceLayers(source);
    const bool chosen = layer ? std::find(layers.begin(), layers.end(), *layer) != layers.end()
                              : layers.size() == 1;
    if (!chosen) {
        RefuseChoice(source::LayerChoiceError(source, layer.value_or(""), layers));
    }
}

} // namespace quorel::cli
