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

std::string DefaultComponentPath() {
    const fs::path installed = InstalledComponentFolder() / "Quorel.so";
    std::error_code error;
    return fs::exists(installed, error) ? installed.string() : QUOREL_DEFAULT_COMPONENT;
}

} // namespace quorel::cli
