#include "apps/quorel-host/LayerTree.h"

#include "apps/quorel-host/MapLayers.h"

#include <QContextMenuEvent>
#include <QMenu>
#include <QTimer>

namespace quorel::host_app {
namespace {

QString Q(const std::string& text) {
    return QString::fromStdString(text);
}

} // namespace

LayerTree::LayerTree(QWidget* parent) : QTreeWidget(parent) {
    setObjectName(QStringLiteral("contents"));
    setHeaderHidden(true);
    setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    setToolTip(QStringLiteral("Case cochée : couche affichée. Clic droit : zoom, couche "
                              "sélectionnable. F2 : renommer."));
    connect(this, &QTreeWidget::itemChanged, this,
            [this](QTreeWidgetItem* item, int) { ItemChanged(item); });
    connect(this, &QTreeWidget::currentItemChanged, this,
            [this](QTreeWidgetItem* item, QTreeWidgetItem*) {
                if (m_filling || !m_handlers.chosen) {
                    return;
                }
                if (const auto layer = LayerOf(item);
                    std::dynamic_pointer_cast<host::IFeatureLayer>(layer)) {
                    m_handlers.chosen(layer);
                }
            });
}

void LayerTree::Fill(const host::IMap& map, const std::shared_ptr<host::IFeatureLayer>& current) {
    m_filling = true;
    clear();
    m_itemLayers.clear();
    auto* root = new QTreeWidgetItem(this, QStringList{Q(map.Name())});
    QFont bold = root->font(0);
    bold.setBold(true);
    root->setFont(0, bold);
    root->setFlags(Qt::ItemIsEnabled);
    for (std::int32_t i = 0; i < map.LayerCount(); ++i) {
        FillItem(root, map.Layer(i), current);
    }
    expandAll();
    m_filling = false;
}

void LayerTree::FillItem(QTreeWidgetItem* parent, const std::shared_ptr<host::ILayer>& layer,
                         const std::shared_ptr<host::IFeatureLayer>& current) {
    auto* item = new QTreeWidgetItem(parent, QStringList{Q(layer->Name())});
    m_itemLayers[item] = layer;
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable |
                   Qt::ItemIsUserCheckable);
    item->setCheckState(0, m_hidden.contains(layer) ? Qt::Unchecked : Qt::Checked);
    if (const auto group = std::dynamic_pointer_cast<host::IGroupLayer>(layer)) {
        item->setIcon(0, style()->standardIcon(QStyle::SP_DirIcon));
        for (std::int32_t i = 0; i < group->Count(); ++i) {
            FillItem(item, group->Layer(i), current);
        }
        return;
    }
    if (const auto feature = std::dynamic_pointer_cast<host::IFeatureLayer>(layer)) {
        QFont font = item->font(0);
        QString tip = Q(LayerDataOf(*feature).Key());
        if (!feature->Selectable()) {
            font.setItalic(true);
            tip += QStringLiteral("\nNon sélectionnable");
        }
        if (feature == current) {
            setCurrentItem(item);
            font.setBold(true);
        }
        item->setFont(0, font);
        item->setToolTip(0, tip);
    }
}

std::shared_ptr<host::ILayer> LayerTree::LayerOf(QTreeWidgetItem* item) const {
    const auto found = m_itemLayers.find(item);
    return found == m_itemLayers.end() ? nullptr : found->second;
}

QTreeWidgetItem* LayerTree::ItemOf(const std::shared_ptr<host::ILayer>& layer) const {
    for (const auto& [item, itemLayer] : m_itemLayers) {
        if (itemLayer == layer) {
            return item;
        }
    }
    return nullptr;
}

std::shared_ptr<host::ILayer> LayerTree::FindLayer(const QString& name) const {
    for (const auto& [item, layer] : m_itemLayers) {
        if (Q(layer->Name()) == name) {
            return layer;
        }
    }
    return nullptr;
}

bool LayerTree::IsShown(const std::shared_ptr<host::ILayer>& layer) const {
    if (m_hidden.contains(layer)) {
        return false;
    }
    QTreeWidgetItem* item = ItemOf(layer);
    for (QTreeWidgetItem* group = item ? item->parent() : nullptr; group != nullptr;
         group = group->parent()) {
        if (const auto groupLayer = LayerOf(group); groupLayer && m_hidden.contains(groupLayer)) {
            return false;
        }
    }
    return true;
}

void LayerTree::SetShown(const std::shared_ptr<host::ILayer>& layer, bool shown) {
    if (shown == !m_hidden.contains(layer)) {
        return;
    }
    if (shown) {
        m_hidden.erase(layer);
    } else {
        m_hidden.insert(layer);
    }
    if (QTreeWidgetItem* item = ItemOf(layer)) {
        m_filling = true;
        item->setCheckState(0, shown ? Qt::Checked : Qt::Unchecked);
        m_filling = false;
    }
    if (m_handlers.shown) {
        m_handlers.shown();
    }
}

void LayerTree::ItemChanged(QTreeWidgetItem* item) {
    const auto layer = LayerOf(item);
    if (m_filling || !layer) {
        return;
    }
    SetShown(layer, item->checkState(0) == Qt::Checked);
    const QString name = item->text(0);
    if (name != Q(layer->Name()) && m_handlers.renamed) {
        // Renaming fills the tree again, deleting the item: leave the tree's handler first.
        QTimer::singleShot(0, this, [this, layer, name] { m_handlers.renamed(layer, name); });
    }
}

std::unique_ptr<QMenu> LayerTree::ContextMenuFor(QTreeWidgetItem* item) {
    const auto layer = LayerOf(item);
    if (!layer) {
        return nullptr;
    }
    auto menu = std::make_unique<QMenu>();
    const auto add = [&](const char* name, const QString& text, auto slot) {
        QAction* action = menu->addAction(text);
        action->setObjectName(QString::fromLatin1(name));
        connect(action, &QAction::triggered, this, slot);
        return action;
    };
    add("zoomToLayer", QStringLiteral("&Zoom sur la couche"), [this, layer] {
        if (m_handlers.zoomTo) {
            m_handlers.zoomTo(layer);
        }
    });
    if (const auto feature = std::dynamic_pointer_cast<host::IFeatureLayer>(layer)) {
        QAction* selectable =
            add("selectable", QStringLiteral("&Sélectionnable"), [this, feature](bool on) {
                if (m_handlers.selectable) {
                    m_handlers.selectable(feature, on);
                }
            });
        selectable->setCheckable(true);
        selectable->setChecked(feature->Selectable());
    }
    menu->addSeparator();
    add("renameLayer", QStringLiteral("Re&nommer"), [this, item] { editItem(item); });
    add("removeLayer", QStringLiteral("&Retirer"), [this, layer] {
        if (m_handlers.remove) {
            m_handlers.remove(layer);
        }
    });
    return menu;
}

void LayerTree::contextMenuEvent(QContextMenuEvent* event) {
    if (const auto menu = ContextMenuFor(itemAt(event->pos()))) {
        menu->exec(event->globalPos());
    }
}

} // namespace quorel::host_app
