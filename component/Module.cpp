// The component's four entry points, its class factories and its object count.

#include "component/ComObject.h"
#include "component/CommandRequeteSouple.h"
#include "component/MenuRequeteur.h"
#include "component/registry/ClassRegistry.h"

#include <climits>
#include <cstdlib>
#include <dlfcn.h>
#include <link.h>
#include <new>
#include <string>

namespace quorel::component {
namespace {

constexpr com::Guid kTypeLibId = com::MakeGuid("{B9FAE490-258D-4CFC-8A44-B0D7C470A193}");
constexpr const char* kTypeLibName = "Quorel";
constexpr const char* kTypeLibVersion = "1.0";

char g_anchor = 0;

// The path of the shared library that holds this code.
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

// One factory per class; factories are objects of the component too.
template <typename Class> class ClassFactory final : public com::IClassFactory, private RefCounted {
public:
    com::HResult QueryInterface(const com::Guid& iid, void** object) override {
        if (object == nullptr) {
            return com::kPointer;
        }
        *object = nullptr;
        if (iid == com::IID_IUnknown || iid == com::IID_IClassFactory) {
            return Hand(static_cast<com::IClassFactory*>(this), object);
        }
        return com::kNoInterface;
    }
    std::uint32_t AddRef() override { return AddRefImpl(); }
    std::uint32_t Release() override { return ReleaseImpl(); }

    com::HResult CreateInstance(com::IUnknown* outer, const com::Guid& iid,
                                void** object) override {
        if (object == nullptr) {
            return com::kPointer;
        }
        *object = nullptr;
        if (outer != nullptr) {
            return com::kNoAggregation;
        }
        auto* instance = new (std::nothrow) Class();
        if (instance == nullptr) {
            return com::kFail;
        }
        // The caller's reference comes from QueryInterface; ours goes.
        const com::HResult result = instance->QueryInterface(iid, object);
        static_cast<com::IUnknown*>(static_cast<typename Class::PrimaryInterface*>(instance))
            ->Release();
        return result;
    }
    com::HResult LockServer(bool lock) override {
        lock ? ++ServerLocks() : --ServerLocks();
        return com::kOk;
    }

private:
    ~ClassFactory() override = default;
};

} // namespace

std::atomic<int>& LiveObjects() {
    static std::atomic<int> count{0};
    return count;
}

std::atomic<int>& ServerLocks() {
    static std::atomic<int> count{0};
    return count;
}

} // namespace quorel::component

using namespace quorel;
using quorel::component::clsRequêteSouple;
using quorel::component::menu_requeteur;

extern "C" {

__attribute__((visibility("default"))) com::HResult DllRegisterServer() {
    try {
        const std::string path = component::LibraryPath();
        if (path.empty()) {
            return com::kRegistrationFailed;
        }
        component::ClassRegistry registry;
        registry.RegisterTypeLib(com::FormatGuid(component::kTypeLibId), component::kTypeLibName,
                                 component::kTypeLibVersion, path);
        registry.RegisterClass(com::FormatGuid(clsRequêteSouple::kClsid), clsRequêteSouple::kProgId,
                               path);
        registry.RegisterClass(com::FormatGuid(menu_requeteur::kClsid), menu_requeteur::kProgId,
                               path);
        registry.Save();
        return com::kOk;
    } catch (...) {
        return com::kRegistrationFailed;
    }
}

__attribute__((visibility("default"))) com::HResult DllUnregisterServer() {
    try {
        component::ClassRegistry registry;
        registry.UnregisterTypeLib(com::FormatGuid(component::kTypeLibId));
        registry.UnregisterClass(com::FormatGuid(clsRequêteSouple::kClsid));
        registry.UnregisterClass(com::FormatGuid(menu_requeteur::kClsid));
        registry.Save();
        return com::kOk;
    } catch (...) {
        return com::kRegistrationFailed;
    }
}

__attribute__((visibility("default"))) com::HResult
DllGetClassObject(const com::Guid* clsid, const com::Guid* iid, void** object) {
    if (clsid == nullptr || iid == nullptr || object == nullptr) {
        return com::kPointer;
    }
    *object = nullptr;
    com::IClassFactory* factory = nullptr;
    if (*clsid == clsRequêteSouple::kClsid) {
        factory = new (std::nothrow) component::ClassFactory<clsRequêteSouple>();
    } else if (*clsid == menu_requeteur::kClsid) {
        factory = new (std::nothrow) component::ClassFactory<menu_requeteur>();
    } else {
        return com::kClassNotAvailable;
    }
    if (factory == nullptr) {
        return com::kFail;
    }
    const com::HResult result = factory->QueryInterface(*iid, object);
    factory->Release();
    return result;
}

__attribute__((visibility("default"))) com::HResult DllCanUnloadNow() {
    return component::LiveObjects() == 0 && component::ServerLocks() == 0 ? com::kOk : com::kFalse;
}

} // extern "C"
