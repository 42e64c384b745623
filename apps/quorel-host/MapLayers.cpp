#include "apps/quorel-host/MapLayers.h"

#include "host/gpkg/GeoPackage.h"
#include "host/shapefile/Shapefile.h"

namespace quorel::host_app {
namespace {

std::shared_ptr<host::shapefile::ShapefileFeatureClass>
ShapefileOf(const host::IFeatureLayer& layer) {
    return std::dynamic_pointer_cast<host::shapefile::ShapefileFeatureClass>(layer.FeatureClass());
}

} // namespace

std::string ShpPathOf(const host::IFeatureLayer& layer) {
    const auto shapefile = ShapefileOf(layer);
    return shapefile ? shapefile->ShpPath() : std::string();
}

LayerData LayerDataOf(const host::IFeatureLayer& layer) {
    if (const auto geoPackage =
            std::dynamic_pointer_cast<host::gpkg::GeoPackageFeatureClass>(layer.FeatureClass())) {
        return {geoPackage->Path(), geoPackage->Table()};
    }
    return {ShpPathOf(layer), ""};
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
