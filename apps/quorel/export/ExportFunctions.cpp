// The export module: the program's GDAL and Qt outputs behind one entry point.

#include "apps/quorel/ExportModule.h"

#include "dialog/PreviewPicture.h"
#include "host/gdal/FeatureExport.h"

namespace {

bool WritePreviewPng(const quorel::criterion::PreviewFigure& figure, const std::string& path) {
    return quorel::dialog::WritePreviewPng(figure, path);
}

} // namespace

extern "C" __attribute__((visibility("default"))) const quorel::cli::ExportFunctions*
QuorelExportFunctions() {
    static const quorel::cli::ExportFunctions functions{
        &quorel::host::gdal::SaveFeaturesAsGeoPackage, &WritePreviewPng};
    return &functions;
}
