#pragma once

// The objects a host hands to a command's OnCreate: its application, or a map control.

#include "host/api/Host.h"
#include "quorel/Com.h"

#include <atomic>
#include <memory>

namespace quorel::component {

// The host application as a hook. A map application (documents are maps) also answers
// IID_IMxApplication.
class ApplicationHook final : public com::IHostApplication {
public:
    static ApplicationHook* Create(std::shared_ptr<host::IApplication> app, bool mapApplication);

    com::HResult QueryInterface(const com::Guid& iid, void** object) override;
    std::uint32_t AddRef() override { return ++m_references; }
    std::uint32_t Release() override;
    std::shared_ptr<host::IApplication> Application() override { return m_app; }

private:
    ApplicationHook(std::shared_ptr<host::IApplication> app, bool mapApplication)
        : m_app(std::move(app)), m_mapApplication(mapApplication) {}
    ~ApplicationHook() = default;

    std::shared_ptr<host::IApplication> m_app;
    bool m_mapApplication;
    std::atomic<std::uint32_t> m_references{1};
};

// A map control as a hook: it shows one map.
class MapControlHook final : public com::IMapControlHook {
public:
    static MapControlHook* Create(std::shared_ptr<host::IMap> map);

    com::HResult QueryInterface(const com::Guid& iid, void** object) override;
    std::uint32_t AddRef() override { return ++m_references; }
    std::uint32_t Release() override;
    std::shared_ptr<host::IMap> Map() override { return m_map; }
    void SetMap(std::shared_ptr<host::IMap> map) { m_map = std::move(map); }

private:
    explicit MapControlHook(std::shared_ptr<host::IMap> map) : m_map(std::move(map)) {}
    ~MapControlHook() = default;

    std::shared_ptr<host::IMap> m_map;
    std::atomic<std::uint32_t> m_references{1};
};

} // namespace quorel::component
