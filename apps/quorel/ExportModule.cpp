#include "apps/quorel/ExportModule.h"

#include "apps/quorel/CliTexts.h"
#include "apps/quorel/Installation.h"

#include "util/Error.h"

#include <dlfcn.h>

namespace quorel::cli {
namespace {

constexpr std::int16_t kTextModuleNotLoaded = 250;

// The module stays loaded until the program ends: nothing it returned may outlive it.
const ExportFunctions& LoadExportModule() {
    const std::string path = ExportModulePath();
    auto fail = [&path](const char* why) -> Error {
        return Error(error_number::kFileNotFound, "quorel",
                     CliMessage(kTextModuleNotLoaded, "cannot load %1: %2",
                                {path, why != nullptr ? why : "?"}));
    };
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        throw fail(::dlerror());
    }
    const auto entry = reinterpret_cast<ExportModuleEntry>(::dlsym(handle, kExportModuleEntry));
    if (entry == nullptr) {
        throw fail(::dlerror());
    }
    return *entry();
}

} // namespace

const ExportFunctions& ExportModule() {
    static const ExportFunctions& functions = LoadExportModule();
    return functions;
}

} // namespace quorel::cli
