#include "host/gdal/LayerShapes.h"

#include "util/Error.h"
#include "util/KeyOrder.h"

#include <gdal_priv.h>
#include <ogrsf_frmts.h>

#include <algorithm>
#include <functional>
#include <memory>

namespace quorel::host::gdal {
namespace {

struct DatasetCloser {
    void operator()(GDALDataset* dataset) const { GDALClose(dataset); }
};
using Dataset = std::unique_ptr<GDALDataset, DatasetCloser>;

struct FeatureDeleter {
    void operator()(OGRFeature* feature) const { OGRFeature::DestroyFeature(feature); }
};
using Feature = std::unique_ptr<OGRFeature, FeatureDeleter>;

Dataset OpenVector(const std::string& path) {
    GDALAllRegister();
    Dataset dataset(GDALDataset::Open(path.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY));
    if (!dataset || dataset->GetLayerCount() < 1) {
        throw Error(error_number::kFileNotFound, "LayerShapes", "Cannot read " + path);
    }
    return dataset;
}

// The layer of that name, or the first one (a shapefile's only layer).
OGRLayer* LayerOf(GDALDataset& dataset, const std::string& path, const std::string& layerName) {
    OGRLayer* layer =
        layerName.empty() ? dataset.GetLayer(0) : dataset.GetLayerByName(layerName.c_str());
    if (!layer) {
        throw Error(error_number::kFileNotFound, "LayerShapes",
                    "No layer " + layerName + " in " + path);
    }
    return layer;
}

void AddRing(const OGRLinearRing& ring, FeatureShape& shape, Extent& extent) {
    std::vector<ShapePoint> points;
    points.reserve(static_cast<std::size_t>(ring.getNumPoints()));
    for (int i = 0; i < ring.getNumPoints(); ++i) {
        const ShapePoint p{ring.getX(i), ring.getY(i)};
        if (extent.IsEmpty()) {
            extent = {p.x, p.y, p.x, p.y};
        } else {
            extent.minX = std::min(extent.minX, p.x);
            extent.minY = std::min(extent.minY, p.y);
            extent.maxX = std::max(extent.maxX, p.x);
            extent.maxY = std::max(extent.maxY, p.y);
        }
        points.push_back(p);
    }
    shape.rings.push_back(std::move(points));
}

void AddPolygon(const OGRPolygon& polygon, FeatureShape& shape, Extent& extent) {
    for (const OGRLinearRing* ring : polygon) {
        AddRing(*ring, shape, extent);
    }
}

// Visits the features as the layer gives them, and returns their ids.
std::vector<GIntBig> ForEachFeature(OGRLayer& layer,
                                    const std::function<void(OGRFeature&)>& visit) {
    layer.ResetReading();
    std::vector<GIntBig> ids;
    while (Feature feature{layer.GetNextFeature()}) {
        ids.push_back(feature->GetFID());
        visit(*feature);
    }
    return ids;
}

} // namespace

LayerShapes ReadLayerShapes(const std::string& shpPath, const std::string& layerName) {
    const Dataset dataset = OpenVector(shpPath);
    LayerShapes result;
    auto ids =
        ForEachFeature(*LayerOf(*dataset, shpPath, layerName), [&result](OGRFeature& feature) {
            FeatureShape shape;
            if (const OGRGeometry* geometry = feature.GetGeometryRef()) {
                const auto type = wkbFlatten(geometry->getGeometryType());
                if (type == wkbPolygon) {
                    AddPolygon(*geometry->toPolygon(), shape, result.extent);
                } else if (type == wkbMultiPolygon) {
                    for (const OGRPolygon* part : *geometry->toMultiPolygon()) {
                        AddPolygon(*part, shape, result.extent);
                    }
                }
            }
            result.features.push_back(std::move(shape));
        });
    // A database gives rows in the order they lie on disk, which an update changes.
    util::SortByKeys(result.features, ids);
    return result;
}

std::vector<std::optional<double>> ReadNumericColumn(const std::string& shpPath,
                                                     const std::string& field,
                                                     const std::string& layerName) {
    const Dataset dataset = OpenVector(shpPath);
    OGRLayer* layer = LayerOf(*dataset, shpPath, layerName);
    const int index = layer->GetLayerDefn()->GetFieldIndex(field.c_str());
    if (index < 0) {
        throw Error(error_number::kHostInvalidIndex, "LayerShapes",
                    "No field " + field + " in " + shpPath);
    }
    std::vector<std::optional<double>> values;
    auto ids = ForEachFeature(*layer, [&values, index](OGRFeature& feature) {
        if (feature.IsFieldSetAndNotNull(index)) {
            values.emplace_back(feature.GetFieldAsDouble(index));
        } else {
            values.emplace_back();
        }
    });
    util::SortByKeys(values, ids);
    return values;
}

} // namespace quorel::host::gdal
