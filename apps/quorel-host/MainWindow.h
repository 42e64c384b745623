#pragma once

// The desktop host's window: the loaded components' commands in toolbars and menus, a table of
// contents of the focus map, the map view, the attribute table of the current layer, editing,
// and a status bar that shows what the components write to its first pane.

#include "apps/quorel-host/ComponentSet.h"
#include "apps/quorel-host/MapView.h"
#include "host/shapefile/Application.h"

#include <QImage>
#include <QMainWindow>

#include <map>
#include <memory>
#include <string>
#include <vector>

class QAction;
class QComboBox;
class QLabel;
class QProgressBar;
class QTableWidget;
class QToolBar;
class QTreeWidget;
class QTreeWidgetItem;

namespace quorel::host_app {

class MainWindow final : public QMainWindow {
public:
    struct Options {
        std::string registryPath;         // the class registry to load from
        std::vector<std::string> progIds; // empty: every class of the registry
    };

    explicit MainWindow(Options options, QWidget* parent = nullptr);
    ~MainWindow() override;

    // Documents. Failures throw quorel::Error; the menu actions show them in a box.
    void NewDocument();
    void OpenDocumentFile(const QString& path);
    void SaveDocumentFile(const QString& path);
    const QString& DocumentPath() const { return m_documentPath; }

    // Layers of the focus map.
    std::shared_ptr<host::IFeatureLayer> AddShapefile(const QString& path);
    void RemoveLayer(const std::shared_ptr<host::ILayer>& layer);
    void RenameLayer(const std::shared_ptr<host::ILayer>& layer, const QString& name);
    void SetLayerSelectable(const std::shared_ptr<host::IFeatureLayer>& layer, bool selectable);
    // The first layer of that name, looked for inside groups too; null when there is none.
    std::shared_ptr<host::ILayer> FindLayer(const QString& name) const;
    void SetCurrentLayer(const std::shared_ptr<host::IFeatureLayer>& layer);
    std::shared_ptr<host::IFeatureLayer> CurrentLayer() const { return m_current; }
    // Shades a numeric field of the current layer; an empty name removes the shading.
    void ShadeField(const QString& field);

    void SetEditing(bool editing);
    bool IsEditing() const;

    // Reads the focus map again: contents, map view, attribute table; a numeric field that
    // appeared since the last look (a criterion just computed) becomes the shaded one.
    void Refresh();

    const std::shared_ptr<host::shapefile::Application>& Application() const { return m_app; }
    const ComponentSet& Components() const { return *m_components; }
    QAction* CommandAction(const QString& progId) const;
    QToolBar* CategoryToolBar(const QString& category) const;
    QTreeWidget* Contents() const { return m_toc; }
    MapView* View() const { return m_view; }
    QTableWidget* AttributeTable() const { return m_table; }
    QComboBox* FieldChoice() const { return m_fieldChoice; }
    QAction* EditingAction() const { return m_editAction; }
    QString StatusMessage() const;
    QProgressBar* Progress() const { return m_progress; }

private:
    class ViewListener;

    void BuildActions();
    void BuildDocks();
    void BuildCommands();
    void BuildRootMenus();
    void ConnectStatusBar();
    void ClickCommand(std::size_t index);
    void UpdateCommandStates();
    void FollowFocusMap();
    void FillContents();
    void FillContentsItem(QTreeWidgetItem* parent, const std::shared_ptr<host::ILayer>& layer);
    void ContentsItemChanged(QTreeWidgetItem* item);
    void FillFieldChoice();
    void FillTable();
    void Redraw();
    void LookForNewFields();
    void UpdateTitle();
    void ScheduleRefresh();
    template <typename Action> void Guarded(const QString& what, Action action);

    Options m_options;
    std::shared_ptr<host::shapefile::Application> m_app;
    std::unique_ptr<ComponentSet> m_components;
    std::unique_ptr<ViewListener> m_viewListener;
    std::shared_ptr<host::shapefile::Map> m_listenedMap;
    std::vector<QAction*> m_commandActions;
    std::map<QString, QToolBar*> m_categoryBars;

    QTreeWidget* m_toc = nullptr;
    MapView* m_view = nullptr;
    QTableWidget* m_table = nullptr;
    QComboBox* m_fieldChoice = nullptr;
    QLabel* m_message = nullptr;
    QLabel* m_editState = nullptr;
    QProgressBar* m_progress = nullptr;
    QAction* m_editAction = nullptr;

    QString m_documentPath;
    std::shared_ptr<host::IFeatureLayer> m_current;
    std::map<std::string, host::gdal::LayerShapes> m_shapeCache;
    // Field names of each layer's data as last seen, by shapefile path.
    std::map<std::string, std::vector<std::string>> m_knownFields;
    std::map<QTreeWidgetItem*, std::shared_ptr<host::ILayer>> m_itemLayers;
    bool m_filling = false;
    bool m_refreshScheduled = false;
};

// A component's picture (24-bit BGR rows, bottom-up) as a Qt image; null when empty.
QImage PictureToImage(const com::Picture& picture);

} // namespace quorel::host_app
