#pragma once

// What a map view draws: the polygons of a layer and the values of one numeric column, in the
// order of the layer's records (their ids' order), read with OGR. The layer is a shapefile's, or
// the one of that name in a file of several (a GeoPackage's table).

#include <optional>
#include <string>
#include <vector>

namespace quorel::host::gdal {

struct ShapePoint {
    double x = 0;
    double y = 0;
};

struct Extent {
    double minX = 0;
    double minY = 0;
    double maxX = 0;
    double maxY = 0;
    bool IsEmpty() const { return maxX < minX || maxY < minY; }
};

// One record: the rings of its polygons (outer and inner rings alike; a view fills them with
// the odd-even rule). A record without geometry has no rings.
struct FeatureShape {
    std::vector<std::vector<ShapePoint>> rings;
};

struct LayerShapes {
    std::vector<FeatureShape> features;
    Extent extent{1, 1, 0, 0}; // empty until a point is read
};

// Throws quorel::Error when the file cannot be opened.
LayerShapes ReadLayerShapes(const std::string& shpPath, const std::string& layerName = {});

// The values of a numeric column, one per record (empty for a null value); throws
// quorel::Error when the file cannot be opened or has no such column.
std::vector<std::optional<double>> ReadNumericColumn(const std::string& shpPath,
                                                     const std::string& field,
                                                     const std::string& layerName = {});

} // namespace quorel::host::gdal
