#include "component/common/ComServer.h"

#include "component/registry/ClassRegistry.h"

#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <link.h>

namespace quorel::component {
namespace {

char g_anchor = 0;

} // namespace

std::atomic<int>& LiveObjects() {
    static std::atomic<int> count{0};
    return count;
}

std::atomic<int>& ServerLocks() {
    static std::atomic<int> count{0};
    return count;
}

std::string LibraryPath() {
    Dl_info info{};
    link_map* map = nullptr;
    if (dladdr1(&g_anchor, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) != 0 &&
        map != nullptr && map->l_name != nullptr && map->l_name[0] != '\0') {
        char resolved[PATH_MAX];
        if (realpath(map->l_name, resolved) != nullptr) {
            return resolved;
        }
        return map->l_name;
    }
    return {};
}

com::HResult RegisterServer(const ServerDescription& server) {
    try {
        const std::string path = LibraryPath();
        if (path.empty()) {
            return com::kRegistrationFailed;
        }
        ClassRegistry registry;
        registry.RegisterTypeLib(com::FormatGuid(server.typeLibId), server.typeLibName,
                                 server.typeLibVersion, path);
        for (const ServerClass& c : server.classes) {
            registry.RegisterClass(com::FormatGuid(c.clsid), c.progId, path);
        }
        registry.Save();
        return com::kOk;
    } catch (...) {
        return com::kRegistrationFailed;
    }
}

com::HResult UnregisterServer(const ServerDescription& server) {
    try {
        ClassRegistry registry;
        registry.UnregisterTypeLib(com::FormatGuid(server.typeLibId));
        for (const ServerClass& c : server.classes) {
            registry.UnregisterClass(com::FormatGuid(c.clsid));
        }
        registry.Save();
        return com::kOk;
    } catch (...) {
        return com::kRegistrationFailed;
    }
}

com::HResult GetClassObject(const ServerDescription& server, const com::Guid* clsid,
                            const com::Guid* iid, void** object) {
    if (clsid == nullptr || iid == nullptr || object == nullptr) {
        return com::kPointer;
    }
    *object = nullptr;
    for (const ServerClass& c : server.classes) {
        if (*clsid != c.clsid) {
            continue;
        }
        com::IClassFactory* factory = c.newFactory();
        if (factory == nullptr) {
            return com::kFail;
        }
        const com::HResult result = factory->QueryInterface(*iid, object);
        factory->Release();
        return result;
    }
    return com::kClassNotAvailable;
}

com::HResult CanUnloadNow() {
    return LiveObjects() == 0 && ServerLocks() == 0 ? com::kOk : com::kFalse;
}

} // namespace quorel::component
