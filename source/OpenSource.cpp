#include "source/OpenSource.h"

#include "host/gpkg/GeoPackage.h"
#include "host/postgis/PostGIS.h"
#include "host/shapefile/Shapefile.h"
#include "source/Application.h"

#include <algorithm>

namespace quorel::source {
namespace {

std::string Joined(const std::vector<std::string>& names) {
    std::string joined;
    for (const auto& name : names) {
        joined += (joined.empty() ? "" : ", ") + name;
    }
    return joined;
}

std::string ChoiceMessage(const std::string& source, const std::string& asked,
                          const std::vector<std::string>& layers) {
    return (asked.empty() ? source + " holds several layers: name one"
                          : "No layer '" + asked + "' in " + source) +
           " (layers: " + Joined(layers) + ")";
}

// A shapefile's one layer: its file's name without the folder and ".shp".
std::string ShapefileLayerName(const std::string& path) {
    const auto slash = path.find_last_of('/');
    std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name.size() > 4 && (name.ends_with(".shp") || name.ends_with(".SHP"))) {
        name.resize(name.size() - 4);
    }
    return name;
}

std::string ChosenLayer(const std::string& source, const std::string& asked,
                        const std::vector<std::string>& layers) {
    if (asked.empty() ? layers.size() != 1
                      : std::find(layers.begin(), layers.end(), asked) == layers.end()) {
        throw LayerChoiceError(source, asked, layers);
    }
    return asked.empty() ? layers.front() : asked;
}

} // namespace

LayerChoiceError::LayerChoiceError(std::string source, std::string asked,
                                   std::vector<std::string> layers)
    : Error(error_number::kHostInvalidIndex, "OpenSourceLayer",
            ChoiceMessage(source, asked, layers)),
      m_source(std::move(source)), m_asked(std::move(asked)), m_layers(std::move(layers)) {}

std::string LayerChoiceError::LayerList() const {
    return Joined(m_layers);
}

bool IsGeoPackageSource(const std::string& source) {
    return host::gpkg::IsGeoPackagePath(source);
}

bool IsPostgresSource(const std::string& source) {
    return host::postgis::IsPostgresSource(source);
}

std::vector<std::string> SourceLayers(const std::string& source) {
    if (IsPostgresSource(source)) {
        return host::postgis::LayerNames(source);
    }
    if (IsGeoPackageSource(source)) {
        return host::gpkg::LayerNames(source);
    }
    return {ShapefileLayerName(source)};
}

std::shared_ptr<host::IFeatureClass> OpenSourceFeatureClass(const std::string& source,
                                                            const std::string& layer) {
    if (IsPostgresSource(source)) {
        const std::string table = ChosenLayer(source, layer, host::postgis::LayerNames(source));
        return host::postgis::PostgisWorkspaceFactory().OpenFromFile(source, 0)->OpenFeatureClass(
            table);
    }
    if (IsGeoPackageSource(source)) {
        const std::string table = ChosenLayer(source, layer, host::gpkg::LayerNames(source));
        return host::gpkg::GeoPackageWorkspaceFactory().OpenFromFile(source, 0)->OpenFeatureClass(
            table);
    }
    const auto slash = source.find_last_of('/');
    const std::string folder = slash == std::string::npos ? "." : source.substr(0, slash);
    const std::string name = ShapefileLayerName(source);
    auto featureClass =
        host::shapefile::ShapefileWorkspaceFactory().OpenFromFile(folder, 0)->OpenFeatureClass(
            name);
    if (!layer.empty() && layer != name) {
        throw LayerChoiceError(source, layer, {name});
    }
    return featureClass;
}

std::shared_ptr<host::IFeatureLayer> OpenSourceLayer(Application& app, const std::string& source,
                                                     const std::string& layer) {
    if (IsPostgresSource(source) || IsGeoPackageSource(source)) {
        const auto featureClass = OpenSourceFeatureClass(source, layer);
        auto opened = app.Factory().NewFeatureLayer();
        opened->SetFeatureClass(featureClass);
        opened->SetName(featureClass->AliasName());
        app.Document()->FocusMap()->AddLayer(opened);
        return opened;
    }
    // The file is opened first, so that a missing one says so rather than naming layers.
    auto opened = app.AddShapefileLayer(source);
    if (!layer.empty() && layer != opened->Name()) {
        app.Document()->FocusMap()->DeleteLayer(opened);
        throw LayerChoiceError(source, layer, {opened->Name()});
    }
    return opened;
}

} // namespace quorel::source
