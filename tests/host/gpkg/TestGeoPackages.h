#pragma once

// Real GeoPackages for the tests, made by GDAL (with its R-tree index and triggers, as analysts'
// files have them), and plain SQLite queries to look inside.

#include "host/api/HostTypes.h"

#include <string>
#include <vector>

namespace quorel::testing {

struct GeoPackageLayer {
    std::string name;
    std::vector<std::string> realFields;
    std::vector<std::vector<host::Value>> rows; // a value per field; Null or a number
    // One geometry per row as WKT; squares when empty.
    std::vector<std::string> geometries = {};
};

// Writes path with the layers given, through GDAL's GeoPackage driver.
void MakeGeoPackage(const std::string& path, const std::vector<GeoPackageLayer>& layers);

// The rows of one query through a plain SQLite connection (no GeoPackage functions; one that
// may write, so that it rolls back what a killed writer left), each
// column as its text ("NULL" for Null, doubles with 17 digits).
std::vector<std::vector<std::string>> Query(const std::string& path, const std::string& sql);

} // namespace quorel::testing
