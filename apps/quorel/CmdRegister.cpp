// "quorel register": enters built components in the user's class registry, or removes them.

#include "apps/quorel/Args.h"
#include "apps/quorel/Installation.h"
#include "apps/quorel/Subcommand.h"

#include "component/hostside/ComponentLoader.h"
#include "component/registry/ClassRegistry.h"

#include <cstdio>
#include <filesystem>
#include <iostream>

namespace quorel::cli {
namespace {

int RunRegister(const std::vector<std::string>& arguments) {
    const Args args(arguments, {{"unregister", 'u', false}});
    const std::vector<std::string> paths =
        args.Positionals().empty() ? DefaultComponentPaths() : args.Positionals();
    const bool unregister = args.Has("unregister");
    int status = 0;
    for (const std::string& path : paths) {
        std::error_code error;
        const std::string absolute = std::filesystem::absolute(path, error).string();
        const auto library = component::ComponentLibrary::Open(error ? path : absolute);
        const com::HResult result =
            unregister ? library->UnregisterServer() : library->RegisterServer();
        if (!com::Succeeded(result)) {
            char code[16];
            std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(result));
            std::cerr << "quorel register: " << library->Path() << " refused (" << code << ")\n";
            status = 1;
            continue;
        }
        std::cout << (unregister ? "Unregistered " : "Registered ") << library->Path() << " in "
                  << component::ClassRegistry::DefaultPath() << "\n";
    }
    return status;
}

} // namespace

const Subcommand& RegisterCommand() {
    static const Subcommand command{
        "register", "enter components in the user's class registry (or remove them)",
        "Usage: quorel register [--unregister] [PATH...]\n\n"
        "Loads each component PATH (by default the two installed or built with this program,\n"
        "Quorel.so and Pravel.so) and calls its registration entry point, which writes its\n"
        "classes to the user's class registry ($XDG_CONFIG_HOME/quorel/classes.ini);\n"
        "--unregister removes them. Entries of other components are kept.\n",
        RunRegister};
    return command;
}

} // namespace quorel::cli
