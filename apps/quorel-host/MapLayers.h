#pragma once

// What the window asks of a map's layers: the walk over every feature layer, groups opened,
// and the shapefile facts behind a layer.

#include "host/api/Host.h"

#include <memory>
#include <string>
#include <vector>

namespace quorel::host_app {

// Every feature layer of the map, groups opened, in map order (top of the contents first).
// The host's one layer walk: the contents, the map and the new-field watch all use it.
std::vector<std::shared_ptr<host::IFeatureLayer>> FeatureLayersOf(const host::IMap& map);
// The same walk from one layer: itself when it is a feature layer, a group's feature layers.
std::vector<std::shared_ptr<host::IFeatureLayer>>
FeatureLayersOf(const std::shared_ptr<host::ILayer>& layer);

// The layer's .shp, or "" when its data is not a shapefile.
std::string ShpPathOf(const host::IFeatureLayer& layer);
// The layer's .dbf, or "" when its data is not a shapefile.
std::string DbfPathOf(const host::IFeatureLayer& layer);
std::vector<std::string> FieldNames(const host::IFeatureLayer& layer);
bool IsNumericType(std::int32_t type);

} // namespace quorel::host_app
