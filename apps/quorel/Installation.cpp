#include "apps/quorel/Installation.h"

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

} // namespace

std::string TextDatabaseFolder() {
    std::error_code error;
    if (!fs::exists(ProgramFolder() / lang::kTextDatabaseFile, error) &&
        fs::exists(InstalledComponentFolder() / lang::kTextDatabaseFile, error)) {
        return InstalledComponentFolder().string();
    }
    // Also when it is missing everywhere: the message names the place beside the program.
    return ProgramFolder().string();
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
