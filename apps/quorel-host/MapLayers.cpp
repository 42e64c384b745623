#include "apps/quorel-host/MapLayers.h"

#include "host/shapefile/Shapefile.h"

namespace quorel::host_app {
namespace {

void CollectFeatureLayers(const std::shared_ptr<host::ILayer>& layer,
                          std::vector<std::shared_ptr<host::IFeatureLayer>>& found) {
    if (const auto group = std::dynamic_pointer_cast<host::IGroupLayer>(layer)) {
        for (std::int32_t i = 0; i < group->Count(); ++i) {
            CollectFeatureLayers(group->Layer(i), found);
        }
    } else if (auto feature = std::dynamic_pointer_cast<host::IFeatureLayer>(layer)) {
        found.push_back(std::move(feature));
    }
}

std::shared_ptr<host::shapefile::ShapefileFeatureClass>
ShapefileOf(const host::IFeatureLayer& layer) {
    return std::dynamic_pointer_cast<host::shapefile::ShapefileFeatureClass>(layer.FeatureClass());
}

} // namespace

std::vector<std::shared_ptr<host::IFeatureLayer>> FeatureLayersOf(const host::IMap& map) {
    std::vector<std::shared_ptr<host::IFeatureLayer>> found;
    for (std::int32_t i = 0; i < map.LayerCount(); ++i) {
        CollectFeatureLayers(map.Layer(i), found);
    }
    return found;
}

std::vector<std::shared_ptr<host::IFeatureLayer>>
FeatureLayersOf(const std::shared_ptr<host::ILayer>& layer) {
    std::vector<std::shared_ptr<host::IFeatureLayer>> found;
    CollectFeatureLayers(layer, found);
    return found;
}

std::string ShpPathOf(const host::IFeatureLayer& layer) {
    const auto shapefile = ShapefileOf(layer);
    return shapefile ? shapefile->ShpPath() : std::string();
}

std::string DbfPathOf(const host::IFeatureLayer& layer) {
    const auto shapefile = ShapefileOf(layer);
    return shapefile ? shapefile->DbfPath() : std::string();
}

std::vector<std::string> FieldNames(const host::IFeatureLayer& layer) {
    std::vector<std::string> names;
    if (const auto featureClass = layer.FeatureClass()) {
        const auto fields = featureClass->Fields();
        for (std::int32_t i = 0; i < fields->FieldCount(); ++i) {
            names.push_back(fields->Field(i)->Name());
        }
    }
    return names;
}

bool IsNumericType(std::int32_t type) {
    return type >= host::kFieldTypeSmallInteger && type <= host::kFieldTypeDouble;
}

} // namespace quorel::host_app
