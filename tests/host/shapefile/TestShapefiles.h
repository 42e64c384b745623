#pragma once

// Real shapefiles for the tests, made with GDAL in a scratch folder, and GDAL's own reading of
// them to check what we wrote.

#include "host/api/HostTypes.h"
#include "tests/support/ScratchFolder.h"
#include "tools/sample/PolygonShapefile.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quorel::testing {

using test::ReadBytes;
using test::ScratchFolder;
bool FileExists(const std::string& path);

// Writes folder/name.shp with the fields and rows given (one Value per field).
void MakeShapefile(const std::string& folder, const std::string& name,
                   const std::vector<tools::FieldSpec>& fields,
                   const std::vector<std::vector<host::Value>>& rows,
                   const std::optional<std::string>& encoding = "UTF-8");

// What GDAL reads from a shapefile.
struct GdalField {
    std::string name;
    std::string type; // OGR's type name: "Integer", "Real", "String"...
    int width = 0;
    int precision = 0;
};
struct GdalTable {
    std::int64_t featureCount = 0;
    std::vector<GdalField> fields;
    std::vector<std::vector<host::Value>> rows; // numbers as doubles, unset or null as Null
    std::vector<bool> geometryIsSet;
};
GdalTable ReadWithGdal(const std::string& shpPath);

// What an N(19,11) column holds for a double: the value printed with 11 decimals.
double Stored(double value);

} // namespace quorel::testing
