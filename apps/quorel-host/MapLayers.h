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

// Where GDAL finds a layer's data: the file (a shapefile's .shp, a GeoPackage) and the layer's
// name in it, empty for a shapefile's only layer; an empty path for data in no file.
struct LayerData {
    std::string path;
    std::string layer;
    // One text per layer, to keep what is read of it.
    std::string Key() const { return layer.empty() ? path : path + "|layername=" + layer; }
};
LayerData LayerDataOf(const host::IFeatureLayer& layer);
// The layer's .dbf, or "" when its data is not a shapefile.
std::string DbfPathOf(const host::IFeatureLayer& layer);
std::vector<std::string> FieldNames(const host::IFeatureLayer& layer);
bool IsNumericType(std::int32_t type);

} // namespace quorel::host_app
