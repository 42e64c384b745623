#include "component/hostside/HostHooks.h"

namespace quorel::component {

ApplicationHook* ApplicationHook::Create(std::shared_ptr<host::IApplication> app,
                                         bool mapApplication) {
    return new ApplicationHook(std::move(app), mapApplication);
}

com::HResult ApplicationHook::QueryInterface(const com::Guid& iid, void** object) {
    if (object == nullptr) {
        return com::kPointer;
    }
    *object = nullptr;
    if (iid == com::IID_IUnknown || iid == com::IID_IApplication ||
        (m_mapApplication && iid == com::IID_IMxApplication)) {
        AddRef();
        *object = static_cast<com::IHostApplication*>(this);
        return com::kOk;
    }
    return com::kNoInterface;
}

std::uint32_t ApplicationHook::Release() {
    const std::uint32_t left = --m_references;
    if (left == 0) {
        delete this;
    }
    return left;
}

MapControlHook* MapControlHook::Create(std::shared_ptr<host::IMap> map) {
    return new MapControlHook(std::move(map));
}

com::HResult MapControlHook::QueryInterface(const com::Guid& iid, void** object) {
    if (object == nullptr) {
        return com::kPointer;
    }
    *object = nullptr;
    if (iid == com::IID_IUnknown || iid == com::IID_IMapControl) {
        AddRef();
        *object = static_cast<com::IMapControlHook*>(this);
        return com::kOk;
    }
    return com::kNoInterface;
}

std::uint32_t MapControlHook::Release() {
    const std::uint32_t left = --m_references;
    if (left == 0) {
        delete this;
    }
    return left;
}

} // namespace quorel::component
