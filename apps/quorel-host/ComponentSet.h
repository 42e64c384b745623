#pragma once

// The components a host loads at start-up: each ProgID is created through the class registry;
// commands get OnCreate with the host's application hook, root-level menus are read item by
// item. A ProgID that fails to load is kept with its reason, so the window can say why.

#include "component/hostside/ComPtr.h"
#include "component/hostside/ComponentLoader.h"
#include "host/api/Host.h"
#include "quorel/Com.h"

#include <memory>
#include <string>
#include <vector>

namespace quorel::host_app {

struct MenuItem {
    std::string progId;
    bool startsGroup = false;
    bool registered = false;
};

struct RootMenu {
    std::string progId;
    std::string caption;
    std::string name;
    std::vector<MenuItem> items;
};

struct LoadedCommand {
    std::string progId;
    component::ComPtr<com::ICommand> command;
};

struct LoadFailure {
    std::string progId;
    std::string reason;
};

class ComponentSet {
public:
    // The ProgIDs of every class in the registry, in its order.
    static std::vector<std::string> RegisteredProgIds(const std::string& registryPath);

    ComponentSet(std::string registryPath, std::shared_ptr<host::IApplication> app);
    ~ComponentSet();
    ComponentSet(const ComponentSet&) = delete;
    ComponentSet& operator=(const ComponentSet&) = delete;

    // Creates each class; an object that is neither a command nor a root-level menu is released.
    void Load(const std::vector<std::string>& progIds);

    const std::vector<LoadedCommand>& Commands() const { return m_commands; }
    const std::vector<RootMenu>& Menus() const { return m_menus; }
    const std::vector<LoadFailure>& Failures() const { return m_failures; }
    bool IsRegistered(const std::string& progId) const { return m_loader.IsRegistered(progId); }

private:
    component::ComponentLoader m_loader;
    component::ComPtr<com::IUnknown> m_hook;
    std::vector<LoadedCommand> m_commands;
    std::vector<RootMenu> m_menus;
    std::vector<LoadFailure> m_failures;
};

} // namespace quorel::host_app
