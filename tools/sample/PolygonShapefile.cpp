#include "tools/sample/PolygonShapefile.h"

#include "util/Error.h"

#include <gdal.h>
#include <ogr_api.h>
#include <ogr_srs_api.h>

#include <cmath>
#include <memory>
#include <mutex>

namespace quorel::tools {
namespace {

constexpr const char* kSource = "PolygonShapefile";
constexpr double kCellSize = 100.0;
constexpr double kOriginX = 640000.0;
constexpr double kOriginY = 6860000.0;

struct DatasetCloser {
    void operator()(GDALDatasetH dataset) const { GDALClose(dataset); }
};
struct FeatureDestroyer {
    void operator()(OGRFeatureH feature) const { OGR_F_Destroy(feature); }
};

std::uint64_t Mix(std::uint64_t x) {
    x += 0x9E3779B97F4A7C15ULL;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ULL;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBULL;
    return x ^ (x >> 31);
}

// A corner of the grid, moved by up to 30% of a cell so that parcels are irregular; the move
// depends only on the corner, so neighbouring parcels share it.
void Corner(std::size_t column, std::size_t row, double& x, double& y) {
    const std::uint64_t h = Mix(column * 0x100000001B3ULL ^ Mix(row));
    const double dx = (static_cast<double>(h & 0xFFFF) / 65535.0 - 0.5) * 0.6;
    const double dy = (static_cast<double>((h >> 16) & 0xFFFF) / 65535.0 - 0.5) * 0.6;
    x = kOriginX + (static_cast<double>(column) + dx) * kCellSize;
    y = kOriginY + (static_cast<double>(row) + dy) * kCellSize;
}

[[noreturn]] void Fail(const std::string& what) {
    throw Error(error_number::kHostFailure, kSource, what + ": " + CPLGetLastErrorMsg());
}

} // namespace

void WritePolygonShapefile(const std::string& shpPath, const std::vector<FieldSpec>& fields,
                           std::size_t count, const RowFiller& fill,
                           const std::optional<std::string>& encoding) {
    static std::once_flag once;
    std::call_once(once, [] { GDALAllRegister(); });
    GDALDriverH driver = GDALGetDriverByName("ESRI Shapefile");
    if (!driver) {
        Fail("No shapefile driver");
    }
    const std::unique_ptr<void, DatasetCloser> dataset(
        GDALCreate(driver, shpPath.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    if (!dataset) {
        Fail("Cannot create " + shpPath);
    }
    std::string encodingOption = "ENCODING=" + encoding.value_or("");
    char* options[] = {encodingOption.data(), nullptr};
    OGRSpatialReferenceH srs = OSRNewSpatialReference(nullptr);
    OSRImportFromEPSG(srs, 2154);
    std::string layerName = shpPath.substr(shpPath.find_last_of('/') + 1);
    layerName = layerName.substr(0, layerName.find_last_of('.'));
    OGRLayerH layer =
        GDALDatasetCreateLayer(dataset.get(), layerName.c_str(), srs, wkbPolygon, options);
    OSRDestroySpatialReference(srs);
    if (!layer) {
        Fail("Cannot create the layer of " + shpPath);
    }
    for (const FieldSpec& field : fields) {
        OGRFieldDefnH definition = OGR_Fld_Create(
            field.name.c_str(), field.type == 'C'                        ? OFTString
                                : field.precision > 0 || field.width > 9 ? OFTReal
                                                                         : OFTInteger);
        OGR_Fld_SetWidth(definition, field.width);
        OGR_Fld_SetPrecision(definition, field.precision);
        const OGRErr error = OGR_L_CreateField(layer, definition, TRUE);
        OGR_Fld_Destroy(definition);
        if (error != OGRERR_NONE) {
            Fail("Cannot create the field " + field.name);
        }
    }

    const auto columns = static_cast<std::size_t>(std::ceil(std::sqrt(static_cast<double>(count))));
    std::vector<host::Value> values(fields.size());
    OGRFeatureDefnH definition = OGR_L_GetLayerDefn(layer);
    for (std::size_t index = 0; index < count; ++index) {
        std::fill(values.begin(), values.end(), host::Value{});
        fill(index, values);
        const std::unique_ptr<void, FeatureDestroyer> feature(OGR_F_Create(definition));
        for (std::size_t k = 0; k < fields.size(); ++k) {
            const auto field = static_cast<int>(k);
            if (const double* number = std::get_if<double>(&values[k])) {
                OGR_F_SetFieldDouble(feature.get(), field, *number);
            } else if (const std::string* text = std::get_if<std::string>(&values[k])) {
                OGR_F_SetFieldString(feature.get(), field, text->c_str());
            } else {
                OGR_F_SetFieldNull(feature.get(), field);
            }
        }
        const std::size_t column = index % columns;
        const std::size_t row = index / columns;
        OGRGeometryH ring = OGR_G_CreateGeometry(wkbLinearRing);
        const std::size_t corners[5][2] = {{column, row},
                                           {column, row + 1},
                                           {column + 1, row + 1},
                                           {column + 1, row},
                                           {column, row}};
        for (const auto& corner : corners) {
            double x = 0;
            double y = 0;
            Corner(corner[0], corner[1], x, y);
            OGR_G_AddPoint_2D(ring, x, y);
        }
        OGRGeometryH polygon = OGR_G_CreateGeometry(wkbPolygon);
        OGR_G_AddGeometryDirectly(polygon, ring);
        OGR_F_SetGeometryDirectly(feature.get(), polygon);
        if (OGR_L_CreateFeature(layer, feature.get()) != OGRERR_NONE) {
            Fail("Cannot write feature " + std::to_string(index) + " of " + shpPath);
        }
    }
}

} // namespace quorel::tools
