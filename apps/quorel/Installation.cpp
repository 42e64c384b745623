#include "apps/quorel/Installation.h"

#include "apps/quorel/ExportModule.h"

#include "errors/Component.h"
#include "lang/Module1.h"

#include <filesystem>

namespace quorel::cli {
namespace {

namespace fs = std::filesystem;

fs::path ProgramFolder() {
    return errors::OwnComponent().folder;
}

fs::path InstalledComponentFolder() {
    return (ProgramFolder() / QUOREL_COMPONENTDIR_FROM_BINDIR).lexically_normal();
}

// The folder holding file: beside the program, else the installed component folder, else
// (missing everywhere) beside the program, which the message then names.
fs::path FolderHolding(const char* file) {
    std::error_code error;
    if (!fs::exists(ProgramFolder() / file, error) &&
        fs::exists(InstalledComponentFolder() / file, error)) {
        return InstalledComponentFolder();
    }
    return ProgramFolder();
}

} // namespace

std::string TextDatabaseFolder() {
    return FolderHolding(lang::kTextDatabaseFile).string();
}

std::string ExportModulePath() {
    return (FolderHolding(kExportModuleFile) / kExportModuleFile).string();
}

std::vector<std::string> DefaultComponentPaths() {
    std::vector<std::string> paths;
    for (const auto& [file, built] : {std::pair{"Quorel.so", QUOREL_DEFAULT_COMPONENT},
                                      std::pair{"Pravel.so", QUOREL_DEFAULT_PRAVEL}}) {
        const fs::path installed = InstalledComponentFolder() / file;
        std::error_code error;
        paths.push_back(fs::exists(installed, error) ? installed.string() : built);
    }
    return paths;
}

} // namespace quorel::cli
