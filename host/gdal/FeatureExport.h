#pragma once

// Writing chosen features of a layer to a new GeoPackage layer, geometry and attributes, with
// GDAL.

#include <cstdint>
#include <string>
#include <vector>

namespace quorel::host::gdal {

// Copies the features of sourcePath (a shapefile, or any vector source GDAL opens; its layer
// sourceLayer, or its only one when empty) whose FIDs are listed to a new layer of the GeoPackage
// outPath, created when it does not exist. The new layer takes the source layer's name, its
// fields, geometry type and spatial reference. A layer of that name already in outPath, or any
// failure, throws quorel::Error; a GeoPackage this call created is then removed.
void SaveFeaturesAsGeoPackage(const std::string& sourcePath, const std::string& sourceLayer,
                              const std::vector<std::int64_t>& fids, const std::string& outPath);

} // namespace quorel::host::gdal
