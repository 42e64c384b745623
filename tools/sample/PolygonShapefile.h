#pragma once

#include "host/api/HostTypes.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quorel::tools {

struct FieldSpec {
    std::string name;
    char type = 'N'; // 'N' number, 'C' text
    int width = 10;
    int precision = 0;
};

// Fills the values of feature `index`, one per field, in field order.
using RowFiller = std::function<void(std::size_t index, std::vector<host::Value>& values)>;

// Writes a polygon shapefile through GDAL: `count` quadrilaterals tiling a grid (neighbours
// share their corners), with the given fields and values. encoding is the .cpg's code page
// ("UTF-8", "ISO-8859-1"...); nullopt writes no .cpg. Throws quorel::Error on failure.
void WritePolygonShapefile(const std::string& shpPath, const std::vector<FieldSpec>& fields,
                           std::size_t count, const RowFiller& fill,
                           const std::optional<std::string>& encoding = "UTF-8");

} // namespace quorel::tools
