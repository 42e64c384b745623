#pragma once

// What every plug-in library of the project shares behind its four entry points: the class
// factories, the registration of its type library and classes in the class registry, and the
// count of live objects that decides whether it may be unloaded. Each library links its own copy
// (nothing of it is exported), so each counts only its own objects.

#include "component/common/ComObject.h"

#include <new>
#include <string>
#include <vector>

namespace quorel::component {

// One factory per class; factories are objects of the library too.
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

// A creatable class of a library: its class id, ProgID and factory maker.
struct ServerClass {
    com::Guid clsid;
    const char* progId;
    com::IClassFactory* (*newFactory)();
};

template <typename Class> com::IClassFactory* NewFactory() {
    return new (std::nothrow) ClassFactory<Class>();
}

// A library: its type library and its classes.
struct ServerDescription {
    com::Guid typeLibId;
    const char* typeLibName;
    const char* typeLibVersion;
    std::vector<ServerClass> classes;
};

// The four entry points' work for a library.
com::HResult RegisterServer(const ServerDescription& server);
com::HResult UnregisterServer(const ServerDescription& server);
com::HResult GetClassObject(const ServerDescription& server, const com::Guid* clsid,
                            const com::Guid* iid, void** object);
com::HResult CanUnloadNow();

// The path of the shared library that holds this code; empty when it cannot be found.
std::string LibraryPath();

} // namespace quorel::component
