#pragma once

// Opening a source by name, for the command line, the desktop host and the dialog alike. A
// source is a shapefile (a path ending in .shp, one layer named after the file), a GeoPackage
// (a path ending in .gpkg, one layer per feature table) or a PostgreSQL database in GDAL's form
// (PG:"dbname=... host=...", one layer per table with a geometry column, "schema.table"
// outside the search path).

#include "host/api/Host.h"
#include "util/Error.h"

#include <memory>
#include <string>
#include <vector>

namespace quorel::source {

class Application;

// The layer asked for is not one of the source's, or the source has several and none was named.
class LayerChoiceError : public Error {
public:
    LayerChoiceError(std::string source, std::string asked, std::vector<std::string> layers);

    const std::string& Source() const { return m_source; }
    // Empty when no layer was named.
    const std::string& Asked() const { return m_asked; }
    const std::vector<std::string>& Layers() const { return m_layers; }
    // The layers, comma-separated.
    std::string LayerList() const;

private:
    std::string m_source;
    std::string m_asked;
    std::vector<std::string> m_layers;
};

// Whether a source names a GeoPackage (.gpkg, any case); otherwise it is taken as a shapefile.
bool IsGeoPackageSource(const std::string& source);
// Whether a source names a PostgreSQL database (it starts with "PG:").
bool IsPostgresSource(const std::string& source);

// The layers of a source, in the order a user picks from. Throws quorel::Error when the source
// cannot be read.
std::vector<std::string> SourceLayers(const std::string& source);

// The feature class of the source's layer, as OpenSourceLayer chooses it, in no map.
std::shared_ptr<host::IFeatureClass> OpenSourceFeatureClass(const std::string& source,
                                                            const std::string& layer);

// Adds the layer to the app's focus map and returns it. layer empty: the source's only layer;
// several layers and no name, or a name the source does not have: throws LayerChoiceError (its
// message lists the layers; the command line exits 64 on it).
std::shared_ptr<host::IFeatureLayer> OpenSourceLayer(Application& app, const std::string& source,
                                                     const std::string& layer);

} // namespace quorel::source
