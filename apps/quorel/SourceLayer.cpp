#include "apps/quorel/SourceLayer.h"

#include "apps/quorel/Args.h"
#include "apps/quorel/CliTexts.h"
#include "source/Application.h"
#include "source/OpenSource.h"

#include <algorithm>
#include <cmath>
#include <iostream>

#include <unistd.h>

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

void ShowProgress(double fraction) {
    if (fraction < 0) {
        std::cerr << "\r\033[K" << std::flush;
        return;
    }
    std::cerr << "\r" << static_cast<int>(std::floor(fraction * 100)) << " %" << std::flush;
}

} // namespace

std::shared_ptr<source::Application> CommandApplication() {
    auto app = std::make_shared<source::Application>();
    if (isatty(STDERR_FILENO)) {
        app->Bar()->SetProgressListener(ShowProgress);
    }
    return app;
}

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
