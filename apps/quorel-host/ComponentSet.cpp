#include "apps/quorel-host/ComponentSet.h"

#include "component/hostside/HostHooks.h"
#include "component/registry/ClassRegistry.h"

#include <exception>

namespace quorel::host_app {
namespace {

// What a menu definition tells about one item.
class ItemDef final : public com::IItemDef {
public:
    void SetID(const std::string& progId) override { item.progId = progId; }
    void SetGroup(bool startsGroup) override { item.startsGroup = startsGroup; }
    void SetSubType(std::int32_t) override {}

    MenuItem item;
};

} // namespace

std::vector<std::string> ComponentSet::RegisteredProgIds(const std::string& registryPath) {
    std::vector<std::string> progIds;
    for (const auto& entry : component::ClassRegistry(registryPath).Classes()) {
        progIds.push_back(entry.progId);
    }
    return progIds;
}

ComponentSet::ComponentSet(std::string registryPath, std::shared_ptr<host::IApplication> app)
    : m_loader(std::move(registryPath)),
      m_hook(component::ComPtr<com::IUnknown>::Adopt(
          component::ApplicationHook::Create(std::move(app), true))) {}

ComponentSet::~ComponentSet() {
    // Commands go first: releasing one disconnects its handlers from the host's objects.
    m_commands.clear();
    m_hook.Reset();
}

void ComponentSet::Load(const std::vector<std::string>& progIds) {
    for (const std::string& progId : progIds) {
        try {
            const auto object = m_loader.CreateByProgId(progId);
            if (!object) {
                m_failures.push_back({progId, "not registered"});
                continue;
            }
            if (auto command = object.Query<com::ICommand>(com::IID_ICommand)) {
                command->OnCreate(m_hook.get());
                m_commands.push_back({progId, std::move(command)});
                continue;
            }
            const auto menu = object.Query<com::IMenuDef>(com::IID_IMenuDef);
            if (menu && object.Query<com::IRootLevelMenu>(com::IID_IRootLevelMenu)) {
                RootMenu root{progId, menu->Caption(), menu->Name(), {}};
                for (std::int32_t i = 0; i < menu->ItemCount(); ++i) {
                    ItemDef def;
                    menu->GetItemInfo(i, &def);
                    def.item.registered = m_loader.IsRegistered(def.item.progId);
                    root.items.push_back(def.item);
                }
                m_menus.push_back(std::move(root));
                continue;
            }
            m_failures.push_back({progId, "neither a command nor a root-level menu"});
        } catch (const std::exception& e) {
            m_failures.push_back({progId, e.what()});
        }
    }
}

} // namespace quorel::host_app
