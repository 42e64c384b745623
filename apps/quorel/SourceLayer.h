#pragma once

// SOURCE and --layer of the commands that work on a layer: a shapefile (one layer, named after
// the file) or a GeoPackage (one layer per feature table).

#include "host/api/Host.h"

#include <memory>
#include <optional>
#include <string>

namespace quorel::source {
class Application;
}

namespace quorel::cli {

// A new application over every source, whose calculator shows its progress as a percentage on
// the terminal when standard error is one.
std::shared_ptr<source::Application> CommandApplication();

// Opens the layer into app's focus map. A layer that is not the source's, or none named where
// the source has several, is a wrong command line (UsageError, exit 64) whose message lists the
// source's layers.
std::shared_ptr<host::IFeatureLayer> OpenCommandLayer(source::Application& app,
                                                      const std::string& source,
                                                      const std::optional<std::string>& layer);

// The same check without opening the data (a shapefile's layer is known from its name).
void CheckLayerChoice(const std::string& source, const std::optional<std::string>& layer);

} // namespace quorel::cli
