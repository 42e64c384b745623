#pragma once

// The table of contents of the focus map: its layers and groups in map order, the current
// layer in bold. The check box shows or hides a layer (a group's hides all it holds); the
// context menu zooms to a layer, makes it selectable or not, renames and removes it. The
// window is told through handlers; the tree never changes the map itself.

#include "host/api/Host.h"

#include <QTreeWidget>

#include <functional>
#include <map>
#include <memory>
#include <set>

class QMenu;

namespace quorel::host_app {

class LayerTree final : public QTreeWidget {
public:
    using LayerHandler = std::function<void(const std::shared_ptr<host::ILayer>&)>;
    struct Handlers {
        LayerHandler chosen;         // a feature layer became the current item
        std::function<void()> shown; // a layer was shown or hidden
        std::function<void(const std::shared_ptr<host::ILayer>&, const QString&)> renamed;
        LayerHandler zoomTo;
        LayerHandler remove;
        std::function<void(const std::shared_ptr<host::IFeatureLayer>&, bool)> selectable;
    };

    explicit LayerTree(QWidget* parent = nullptr);
    void SetHandlers(Handlers handlers) { m_handlers = std::move(handlers); }

    // Lists the map's layers again, keeping which ones are hidden.
    void Fill(const host::IMap& map, const std::shared_ptr<host::IFeatureLayer>& current);

    std::shared_ptr<host::ILayer> LayerOf(QTreeWidgetItem* item) const;
    QTreeWidgetItem* ItemOf(const std::shared_ptr<host::ILayer>& layer) const;
    // The first layer of that name, looked for inside groups too; null when there is none.
    std::shared_ptr<host::ILayer> FindLayer(const QString& name) const;

    // Whether the layer is drawn: its box and those of the groups holding it are checked.
    bool IsShown(const std::shared_ptr<host::ILayer>& layer) const;
    void SetShown(const std::shared_ptr<host::ILayer>& layer, bool shown);

    // The context menu of an item's layer; null for the map's own item.
    std::unique_ptr<QMenu> ContextMenuFor(QTreeWidgetItem* item);

protected:
    void contextMenuEvent(QContextMenuEvent* event) override;

private:
    void FillItem(QTreeWidgetItem* parent, const std::shared_ptr<host::ILayer>& layer,
                  const std::shared_ptr<host::IFeatureLayer>& current);
    void ItemChanged(QTreeWidgetItem* item);

    Handlers m_handlers;
    std::map<QTreeWidgetItem*, std::shared_ptr<host::ILayer>> m_itemLayers;
    // Hidden layers and groups; a layer that is gone drops out by itself.
    std::set<std::weak_ptr<host::ILayer>, std::owner_less<>> m_hidden;
    bool m_filling = false;
};

} // namespace quorel::host_app
