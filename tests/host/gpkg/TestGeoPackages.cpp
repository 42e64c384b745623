#include "tests/host/gpkg/TestGeoPackages.h"

#include <gdal.h>
#include <ogr_api.h>
#include <sqlite3.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace quorel::testing {

void MakeGeoPackage(const std::string& path, const std::vector<GeoPackageLayer>& layers) {
    GDALAllRegister();
    GDALDriverH driver = GDALGetDriverByName("GPKG");
    const std::unique_ptr<void, decltype(&GDALClose)> dataset(
        GDALCreate(driver, path.c_str(), 0, 0, 0, GDT_Unknown, nullptr), &GDALClose);
    if (!dataset) {
        throw std::runtime_error("GDAL cannot create " + path);
    }
    for (const GeoPackageLayer& wanted : layers) {
        const bool polygons = wanted.geometries.empty();
        OGRLayerH layer = GDALDatasetCreateLayer(dataset.get(), wanted.name.c_str(), nullptr,
                                                 polygons ? wkbPolygon : wkbUnknown, nullptr);
        for (const std::string& name : wanted.realFields) {
            OGRFieldDefnH field = OGR_Fld_Create(name.c_str(), OFTReal);
            OGR_L_CreateField(layer, field, TRUE);
            OGR_Fld_Destroy(field);
        }
        for (std::size_t r = 0; r < wanted.rows.size(); ++r) {
            OGRFeatureH feature = OGR_F_Create(OGR_L_GetLayerDefn(layer));
            for (std::size_t f = 0; f < wanted.rows[r].size(); ++f) {
                if (const auto* value = std::get_if<double>(&wanted.rows[r][f])) {
                    OGR_F_SetFieldDouble(feature, static_cast<int>(f), *value);
                } else {
                    OGR_F_SetFieldNull(feature, static_cast<int>(f));
                }
            }
            char wkt[160];
            std::snprintf(wkt, sizeof wkt, "POLYGON ((%zu 0,%zu 1,%zu 1,%zu 0,%zu 0))", r, r, r + 1,
                          r + 1, r);
            std::string text = polygons ? wkt : wanted.geometries[r];
            char* cursor = text.data();
            OGRGeometryH geometry = nullptr;
            OGR_G_CreateFromWkt(&cursor, nullptr, &geometry);
            OGR_F_SetGeometryDirectly(feature, geometry);
            const OGRErr created = OGR_L_CreateFeature(layer, feature);
            OGR_F_Destroy(feature);
            if (created != OGRERR_NONE) {
                throw std::runtime_error("GDAL cannot write a feature of " + path);
            }
        }
    }
}

std::vector<std::vector<std::string>> Query(const std::string& path, const std::string& sql) {
    sqlite3* db = nullptr;
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        sqlite3_close(db);
        throw std::runtime_error("cannot open " + path);
    }
    const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> owner(db, &sqlite3_close);
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
        throw std::runtime_error(std::string(sqlite3_errmsg(db)) + " in " + sql);
    }
    const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> query(statement,
                                                                           &sqlite3_finalize);
    std::vector<std::vector<std::string>> rows;
    while (sqlite3_step(statement) == SQLITE_ROW) {
        std::vector<std::string> row;
        for (int i = 0; i < sqlite3_column_count(statement); ++i) {
            switch (sqlite3_column_type(statement, i)) {
            case SQLITE_NULL:
                row.emplace_back("NULL");
                break;
            case SQLITE_FLOAT: {
                char text[40];
                std::snprintf(text, sizeof text, "%.17g", sqlite3_column_double(statement, i));
                row.emplace_back(text);
                break;
            }
            default:
                row.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, i)));
            }
        }
        rows.push_back(row);
    }
    return rows;
}

} // namespace quorel::testing
