#pragma once

// The outputs of the command line that need GDAL or Qt (the features "query --save" writes to
// a GeoPackage, the picture "preview --png" draws) live in a module of their own,
// quorel-export.so, that the program loads only when a command writes one of them: every
// other command then starts without loading those libraries.

#include "criterion/Preview.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quorel::cli {

// The module's functions. The module is built with the program, so both sides share these
// C++ types; an error is thrown through as quorel::Error.
struct ExportFunctions {
    // host::gdal::SaveFeaturesAsGeoPackage.
    void (*saveFeaturesAsGeoPackage)(const std::string& sourcePath, const std::string& sourceLayer,
                                     const std::vector<std::int64_t>& fids,
                                     const std::string& outPath);
    // dialog::WritePreviewPng at the picture's usual size: false when the file is not written.
    bool (*writePreviewPng)(const criterion::PreviewFigure& figure, const std::string& path);
};

inline constexpr const char* kExportModuleFile = "quorel-export.so";
// The module's one exported symbol: a function returning its ExportFunctions.
inline constexpr const char* kExportModuleEntry = "QuorelExportFunctions";
using ExportModuleEntry = const ExportFunctions* (*)();

// The module's functions, loaded on first use from beside the program, else from the installed
// component folder. Throws quorel::Error, naming the module and why, when it cannot be loaded.
const ExportFunctions& ExportModule();

} // namespace quorel::cli
