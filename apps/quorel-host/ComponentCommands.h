#pragma once

// The loaded components in the window: each command in a toolbar and a menu named by its
// category, with its caption, tooltip and picture; each root-level menu in the menu bar, its
// items named by their ProgIDs: disabled while no loaded command provides them, else enabled
// and shown with that command's caption, tooltip and picture. A component that
// failed to load keeps a disabled item, named by its ProgID, under "Composants", and the window
// says why in a message.

#include "apps/quorel-host/ComponentSet.h"

#include <QImage>
#include <QString>

#include <cstddef>
#include <functional>
#include <map>
#include <vector>

class QAction;
class QMainWindow;
class QToolBar;

namespace quorel::host_app {

class ComponentCommands {
public:
    using ClickHandler = std::function<void(std::size_t command)>;

    // Puts the components' commands and menus in the window.
    ComponentCommands(QMainWindow& window, const ComponentSet& components, ClickHandler click);

    // Follows each command's Enabled and Checked.
    void UpdateStates();
    QAction* CommandAction(const QString& progId) const;
    QToolBar* CategoryToolBar(const QString& category) const;
    // One line per component that failed to load, naming its ProgID and the reason; empty when
    // all loaded.
    QString FailureText() const;

private:
    void BuildCommands();
    void BuildRootMenus();
    void BuildFailures();

    QMainWindow& m_window;
    const ComponentSet& m_components;
    ClickHandler m_click;
    std::vector<QAction*> m_commandActions;
    // Root-menu items that stand for a loaded command, with its position.
    std::vector<std::pair<QAction*, std::size_t>> m_menuItems;
    std::map<QString, QToolBar*> m_categoryBars;
};

// A component's picture (24-bit BGR rows, bottom-up) as a Qt image; null when empty.
QImage PictureToImage(const com::Picture& picture);

} // namespace quorel::host_app
