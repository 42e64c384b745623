#include "tests/host/shapefile/TestShapefiles.h"

#include <gdal.h>
#include <ogr_api.h>

#include <gtest/gtest.h>

#include <charconv>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace quorel::testing {

bool FileExists(const std::string& path) {
    return std::filesystem::exists(path);
}

void MakeShapefile(const std::string& folder, const std::string& name,
                   const std::vector<tools::FieldSpec>& fields,
                   const std::vector<std::vector<host::Value>>& rows,
                   const std::optional<std::string>& encoding) {
    tools::WritePolygonShapefile(
        folder + "/" + name + ".shp", fields, rows.size(),
        [&rows](std::size_t index, std::vector<host::Value>& values) { values = rows[index]; },
        encoding);
}

GdalTable ReadWithGdal(const std::string& shpPath) {
    GDALAllRegister();
    const char* const drivers[] = {"ESRI Shapefile", nullptr};
    const std::unique_ptr<void, decltype(&GDALClose)> dataset(
        GDALOpenEx(shpPath.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, drivers, nullptr, nullptr),
        &GDALClose);
    if (!dataset) {
        throw std::runtime_error("GDAL cannot open " + shpPath);
    }
    OGRLayerH layer = GDALDatasetGetLayer(dataset.get(), 0);
    GdalTable table;
    table.featureCount = OGR_L_GetFeatureCount(layer, TRUE);
    OGRFeatureDefnH definition = OGR_L_GetLayerDefn(layer);
    for (int i = 0; i < OGR_FD_GetFieldCount(definition); ++i) {
        OGRFieldDefnH field = OGR_FD_GetFieldDefn(definition, i);
        table.fields.push_back({OGR_Fld_GetNameRef(field),
                                OGR_GetFieldTypeName(OGR_Fld_GetType(field)),
                                OGR_Fld_GetWidth(field), OGR_Fld_GetPrecision(field)});
    }
    OGR_L_ResetReading(layer);
    while (OGRFeatureH feature = OGR_L_GetNextFeature(layer)) {
        std::vector<host::Value> row;
        for (int i = 0; i < OGR_FD_GetFieldCount(definition); ++i) {
            if (!OGR_F_IsFieldSetAndNotNull(feature, i)) {
                row.emplace_back();
            } else if (OGR_Fld_GetType(OGR_FD_GetFieldDefn(definition, i)) == OFTString) {
                row.emplace_back(std::string(OGR_F_GetFieldAsString(feature, i)));
            } else {
                row.emplace_back(OGR_F_GetFieldAsDouble(feature, i));
            }
        }
        table.rows.push_back(std::move(row));
        OGRGeometryH geometry = OGR_F_GetGeometryRef(feature);
        table.geometryIsSet.push_back(geometry != nullptr && !OGR_G_IsEmpty(geometry));
        OGR_F_Destroy(feature);
    }
    return table;
}

double Stored(double value) {
    char text[64];
    const auto end = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 11);
    double back = 0;
    std::from_chars(text, end.ptr, back);
    return back;
}

} // namespace quorel::testing
