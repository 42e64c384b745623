#pragma once

// What the window asks of a map's layers: the walk over every feature layer, groups opened,
// and the shapefile facts behind a layer.

#include "host/api/Host.h"
#include "host/api/LayerWalk.h"

#include <memory>
#include <string>
#include <vector>

namespace quorel::host_app {

// The layer walk every host shares: the contents, the map and the new-field watch all use it.
using host::FeatureLayersOf;

// The layer's .shp, or "" when its data is not a shapefile.
std::string ShpPathOf(const host::IFeatureLayer& layer);
// The layer's .dbf, or "" when its data is not a shapefile.
std::string DbfPathOf(const host::IFeatureLayer& layer);
std::vector<std::string> FieldNames(const host::IFeatureLayer& layer);
bool IsNumericType(std::int32_t type);

} // namespace quorel::host_app
