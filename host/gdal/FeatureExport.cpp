#include "host/gdal/FeatureExport.h"

#include "util/Error.h"

#include <gdal.h>
#include <ogr_api.h>
#include <ogr_srs_api.h>

#include <filesystem>
#include <memory>

namespace quorel::host::gdal {
namespace {

constexpr const char* kSource = "SaveFeaturesAsGeoPackage";

struct DatasetCloser {
    void operator()(void* dataset) const { GDALClose(dataset); }
};
using Dataset = std::unique_ptr<void, DatasetCloser>;

struct FeatureDestroyer {
    void operator()(OGRFeatureH feature) const { OGR_F_Destroy(feature); }
};
using Feature = std::unique_ptr<std::remove_pointer_t<OGRFeatureH>, FeatureDestroyer>;

[[noreturn]] void Fail(const std::string& what) {
    const char* detail = CPLGetLastErrorMsg();
    throw Error(error_number::kHostFailure, kSource,
                what + (detail != nullptr && *detail != '\0' ? ": " + std::string(detail) : ""));
}

} // namespace

void SaveFeaturesAsGeoPackage(const std::string& sourcePath, const std::string& sourceLayer,
                              const std::vector<std::int64_t>& fids, const std::string& outPath) {
    GDALAllRegister();
    CPLErrorReset();
    const Dataset source(GDALOpenEx(sourcePath.c_str(), GDAL_OF_VECTOR | GDAL_OF_READONLY, nullptr,
                                    nullptr, nullptr));
    if (!source) {
        Fail("cannot open " + sourcePath);
    }
    OGRLayerH input = sourceLayer.empty()
                          ? GDALDatasetGetLayer(source.get(), 0)
                          : GDALDatasetGetLayerByName(source.get(), sourceLayer.c_str());
    if (input == nullptr) {
        Fail("no layer '" + sourceLayer + "' in " + sourcePath);
    }

    std::error_code error;
    const bool existed = std::filesystem::exists(outPath, error);
    Dataset out;
    if (existed) {
        out.reset(GDALOpenEx(outPath.c_str(), GDAL_OF_VECTOR | GDAL_OF_UPDATE, nullptr, nullptr,
                             nullptr));
    } else {
        GDALDriverH driver = GDALGetDriverByName("GPKG");
        if (driver == nullptr) {
            Fail("GDAL has no GeoPackage driver");
        }
        out.reset(GDALCreate(driver, outPath.c_str(), 0, 0, 0, GDT_Unknown, nullptr));
    }
    if (!out) {
        Fail("cannot write " + outPath);
    }
    // Whatever fails from here removes a GeoPackage this call made.
    struct RemoveOnFailure {
        const std::string& path;
        bool armed;
        Dataset& dataset;
        ~RemoveOnFailure() {
            if (armed) {
                dataset.reset();
                std::error_code ignored;
                std::filesystem::remove(path, ignored);
            }
        }
    } removeOnFailure{outPath, !existed, out};

    OGRFeatureDefnH definition = OGR_L_GetLayerDefn(input);
    const char* name = OGR_FD_GetName(definition);
    if (GDALDatasetGetLayerByName(out.get(), name) != nullptr) {
        throw Error(error_number::kHostFailure, kSource,
                    outPath + " already has a layer '" + name + "'");
    }
    OGRLayerH output = GDALDatasetCreateLayer(out.get(), name, OGR_L_GetSpatialRef(input),
                                              OGR_FD_GetGeomType(definition), nullptr);
    if (output == nullptr) {
        Fail("cannot create the layer '" + std::string(name) + "' in " + outPath);
    }
    for (int i = 0; i < OGR_FD_GetFieldCount(definition); ++i) {
        if (OGR_L_CreateField(output, OGR_FD_GetFieldDefn(definition, i), TRUE) != OGRERR_NONE) {
            Fail("cannot create a field in " + outPath);
        }
    }
    if (GDALDatasetStartTransaction(out.get(), FALSE) != OGRERR_NONE) {
        Fail("cannot write " + outPath);
    }
    for (const std::int64_t fid : fids) {
        const Feature feature(OGR_L_GetFeature(input, fid));
        if (!feature) {
            Fail("no feature " + std::to_string(fid) + " in " + sourcePath);
        }
        const Feature copy(OGR_F_Create(OGR_L_GetLayerDefn(output)));
        if (OGR_F_SetFrom(copy.get(), feature.get(), TRUE) != OGRERR_NONE ||
            OGR_L_CreateFeature(output, copy.get()) != OGRERR_NONE) {
            Fail("cannot write feature " + std::to_string(fid) + " to " + outPath);
        }
    }
    if (GDALDatasetCommitTransaction(out.get()) != OGRERR_NONE) {
        Fail("cannot write " + outPath);
    }
    out.reset();
    removeOnFailure.armed = false;
}

} // namespace quorel::host::gdal
