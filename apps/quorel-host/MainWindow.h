#pragma once

// The desktop host's window: the loaded components' commands in toolbars and menus, the table
// of contents of the focus map, the map with its tools, the attribute table of the current
// layer, what the identify tool found, editing, and a status bar that shows what the
// components write to its first pane.

#include "apps/quorel-host/ComponentCommands.h"
#include "apps/quorel-host/ComponentSet.h"
#include "apps/quorel-host/IdentifyPanel.h"
#include "apps/quorel-host/LayerTree.h"
#include "apps/quorel-host/MapView.h"
#include "source/Application.h"

#include <QMainWindow>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

class QAction;
class QCheckBox;
class QComboBox;
class QDockWidget;
class QLabel;
class QMessageBox;
class QProgressBar;
class QTableView;
class QToolBar;

namespace quorel::host_app {

class AttributeTableModel;

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
    // The layer of a source (a shapefile, a GeoPackage's table; "" for a source's only layer),
    // added to the focus map.
    std::shared_ptr<host::IFeatureLayer> AddLayerOf(const QString& path,
                                                    const std::string& layerName);
    void RemoveLayer(const std::shared_ptr<host::ILayer>& layer);
    void RenameLayer(const std::shared_ptr<host::ILayer>& layer, const QString& name);
    void SetLayerSelectable(const std::shared_ptr<host::IFeatureLayer>& layer, bool selectable);
    void SetLayerShown(const std::shared_ptr<host::ILayer>& layer, bool shown);
    void ZoomToLayer(const std::shared_ptr<host::ILayer>& layer);
    // The first layer of that name, looked for inside groups too; null when there is none.
    std::shared_ptr<host::ILayer> FindLayer(const QString& name) const;
    void SetCurrentLayer(const std::shared_ptr<host::IFeatureLayer>& layer);
    std::shared_ptr<host::IFeatureLayer> CurrentLayer() const { return m_current; }
    // Shades a numeric field of the current layer; an empty name removes the shading.
    void ShadeField(const QString& field);
    // What the identify tool does on a click at that map point.
    void IdentifyAt(const ShapePoint& at);

    // The selected features of every layer are drawn highlighted; the table marks those of the
    // current layer and, with "selected only", shows no other row. Both follow the layers'
    // selections as they change. Clears every layer's selection.
    void ClearSelections();
    QCheckBox* SelectedOnlyBox() const { return m_selectedOnly; }
    QString SelectionCountText() const;

    void SetEditing(bool editing);
    bool IsEditing() const;

    // Reads the focus map again: contents, map view, attribute table; a numeric field that
    // appeared since the last look (a criterion just computed) becomes the shaded one.
    void Refresh();

    const std::shared_ptr<source::Application>& Application() const { return m_app; }
    const ComponentSet& Components() const { return *m_components; }
    QAction* CommandAction(const QString& progId) const;
    QToolBar* CategoryToolBar(const QString& category) const;
    LayerTree* Contents() const { return m_toc; }
    MapView* View() const { return m_view; }
    QTableView* AttributeTable() const { return m_table; }
    AttributeTableModel* AttributeModel() const { return m_tableModel; }
    IdentifyPanel* Identified() const { return m_identify; }
    QComboBox* FieldChoice() const { return m_fieldChoice; }
    QAction* EditingAction() const { return m_editAction; }
    QString StatusMessage() const;
    QProgressBar* Progress() const { return m_progress; }
    // The message listing the components that failed to load; null when all loaded.
    QMessageBox* LoadFailureMessage() const { return m_failureBox; }

private:
    class ViewListener;
    class SelectionListener;

    void BuildActions();
    void BuildDocks();
    void ConnectStatusBar();
    void ShowLoadFailures();
    void ClickCommand(std::size_t index);
    void FollowFocusMap();
    void FillFieldChoice();
    void FillTable();
    void Redraw();
    void LookForNewFields();
    void UpdateTitle();
    void ScheduleRefresh();
    void FollowSelections(const std::vector<std::shared_ptr<host::IFeatureLayer>>& layers);
    void ScheduleSelectionUpdate();
    void ShowCurrentSelection();
    std::shared_ptr<const std::vector<std::uint8_t>>
    SelectedMarks(const std::shared_ptr<host::IFeatureLayer>& layer, std::size_t featureCount);
    std::shared_ptr<const LayerGeometry> GeometryOf(const host::IFeatureLayer& layer);
    std::shared_ptr<const TableReader> TableOf(const host::IFeatureLayer& layer);
    template <typename Action> void Guarded(const QString& what, Action action);

    Options m_options;
    std::shared_ptr<source::Application> m_app;
    std::unique_ptr<ComponentSet> m_components;
    std::unique_ptr<ComponentCommands> m_commands;
    std::unique_ptr<ViewListener> m_viewListener;
    std::shared_ptr<host::map::Map> m_listenedMap;
    std::unique_ptr<SelectionListener> m_selectionListener;
    std::vector<std::weak_ptr<host::IFeatureLayer>> m_selectionSources;

    LayerTree* m_toc = nullptr;
    MapView* m_view = nullptr;
    QTableView* m_table = nullptr;
    AttributeTableModel* m_tableModel = nullptr;
    IdentifyPanel* m_identify = nullptr;
    QDockWidget* m_identifyDock = nullptr;
    QComboBox* m_fieldChoice = nullptr;
    QCheckBox* m_selectedOnly = nullptr;
    QLabel* m_selectionCount = nullptr;
    QLabel* m_message = nullptr;
    QLabel* m_editState = nullptr;
    QProgressBar* m_progress = nullptr;
    QAction* m_editAction = nullptr;
    QMessageBox* m_failureBox = nullptr;

    QString m_documentPath;
    std::shared_ptr<host::IFeatureLayer> m_current;
    // Geometry read once per shapefile: its .shp is never written here.
    std::map<std::string, std::shared_ptr<const LayerGeometry>> m_geometry;
    // Field names of each layer's data as last seen, by shapefile path.
    std::map<std::string, std::vector<std::string>> m_knownFields;
    // The selection's marks of each drawn layer, with what they were made from.
    struct SelectionMarks {
        std::vector<std::int64_t> ids;
        std::shared_ptr<const TableReader> table;
        std::shared_ptr<const std::vector<std::uint8_t>> marks;
    };
    std::map<const host::IFeatureLayer*, SelectionMarks> m_selectionMarks;
    bool m_refreshScheduled = false;
    bool m_selectionUpdateScheduled = false;
};

} // namespace quorel::host_app
