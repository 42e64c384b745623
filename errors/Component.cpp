#include "errors/Component.h"

#include "quorel/Version.h"

#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

namespace quorel::errors {
namespace {

// Internal linkage: a copy of this code in another module cannot interpose it, so the address
// always belongs to the file that holds this very code.
char g_anchor = 0;

std::string RealPath(const std::string& path) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) != nullptr) {
        return resolved;
    }
    return path;
}

std::string ExecutablePath() {
    char buffer[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (length <= 0) {
        return {};
    }
    return std::string(buffer, static_cast<std::size_t>(length));
}

std::string OwnFilePath() {
    Dl_info info{};
    link_map* map = nullptr;
    if (dladdr1(&g_anchor, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) != 0 &&
        map != nullptr && map->l_name != nullptr && map->l_name[0] != '\0') {
        return RealPath(map->l_name);
    }
    // The main program has an empty name in the link map; dladdr would give argv[0], which
    // may be relative to a directory we have since left.
    return ExecutablePath();
}

ComponentIdentity FindIdentity() {
    ComponentIdentity identity;
    const std::string path = OwnFilePath();
    const auto slash = path.rfind('/');
    identity.folder = slash == std::string::npos ? std::string() : path.substr(0, slash);
    std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
    const auto dot = file.rfind('.');
    if (dot != std::string::npos && dot > 0) {
        file.resize(dot);
    }
    identity.name = file;
    identity.version = ComponentVersionText();
    return identity;
}

} // namespace

const ComponentIdentity& OwnComponent() {
    static const ComponentIdentity identity = FindIdentity();
    return identity;
}

std::string ComponentVersionText() {
    return std::to_string(kVersionMajor) + "." + std::to_string(kVersionMinor) + "." +
           std::to_string(kVersionRevision);
}

} // namespace quorel::errors
