// "quorel register": enters a built component in the user's class registry, or removes it.

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
    if (args.Positionals().size() > 1) {
        throw UsageError("at most one component path");
    }
    const std::string path =
        args.Positionals().empty() ? DefaultComponentPath() : args.Positionals()[0];
    std::error_code error;
    const std::string absolute = std::filesystem::absolute(path, error).string();
    const auto library = component::ComponentLibrary::Open(error ? path : absolute);
    const bool unregister = args.Has("unregister");
    const com::HResult result =
        unregister ? library->UnregisterServer() : library->RegisterServer();
    if (!com::Succeeded(result)) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08X", static_cast<unsigned>(result));
        std::cerr << "quorel register: " << library->Path() << " refused (" << code << ")\n";
        return 1;
    }
    std::cout << (unregister ? "Unregistered " : "Registered ") << library->Path() << " in "
              << component::ClassRegistry::DefaultPath() << "\n";
    return 0;
}

} // namespace

const Subcommand& RegisterCommand() {
    static const Subcommand command{
        "register", "enter a component in the user's class registry (or remove it)",
        "Usage: quorel register [--unregister] [PATH]\n\n"
        "Loads the component PATH (by default the one installed or built with this program) and\n"
        "calls its registration entry point, which writes its classes to the user's class\n"
        "registry ($XDG_CONFIG_HOME/quorel/classes.ini); --unregister removes them. Entries of\n"
        "other components are kept.\n",
        RunRegister};
    return command;
}

} // namespace quorel::cli
