#include "apps/quorel-host/MainWindow.h"

#include "apps/quorel-host/AttributeTableModel.h"
#include "apps/quorel-host/MapDocumentFile.h"
#include "apps/quorel-host/MapLayers.h"
#include "host/api/Selection.h"
#include "host/gdal/LayerShapes.h"
#include "source/OpenSource.h"
#include "util/Error.h"

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QSplitter>
#include <QStatusBar>
#include <QTableView>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace quorel::host_app {
namespace {

QString Q(const std::string& text) {
    return QString::fromStdString(text);
}

// Pleasant, distinct fills for layers that are not shaded.
QColor LayerFill(std::size_t index) {
    static const QColor fills[] = {
        {204, 223, 240}, {236, 222, 196}, {214, 234, 210}, {232, 214, 232}, {240, 236, 200}};
    return fills[index % std::size(fills)];
}

} // namespace

// Hears the focus map's view events: a layer added by a component (the dialog's "add shape"),
// deleted or moved shows in the window.
class MainWindow::ViewListener final : public host::IMapActiveViewEvents {
public:
    explicit ViewListener(MainWindow& window) : m_window(window) {}
    void FocusMapChanged() override { m_window.ScheduleRefresh(); }
    void ContentsChanged() override { m_window.ScheduleRefresh(); }
    void ContentsCleared() override { m_window.ScheduleRefresh(); }
    void ItemAdded(const std::shared_ptr<host::ILayer>&) override { m_window.ScheduleRefresh(); }
    void ItemDeleted(const std::shared_ptr<host::ILayer>&) override { m_window.ScheduleRefresh(); }
    void ItemReordered(const std::shared_ptr<host::ILayer>&, std::int32_t) override {
        m_window.ScheduleRefresh();
    }
    void SelectionChanged() override {}
    void ViewRefreshed() override {}
    void AfterDraw() override {}
    void AfterItemDraw() override {}
    void SpatialReferenceChanged() override {}

private:
    MainWindow& m_window;
};

// Hears the layers' selections: a command (the fuzzy query) selecting features shows at once.
class MainWindow::SelectionListener final : public host::ISelectionEvents {
public:
    explicit SelectionListener(MainWindow& window) : m_window(window) {}
    void SelectionChanged() override { m_window.ScheduleSelectionUpdate(); }

private:
    MainWindow& m_window;
};

MainWindow::MainWindow(Options options, QWidget* parent)
    : QMainWindow(parent), m_options(std::move(options)),
      m_app(std::make_shared<source::Application>()),
      m_viewListener(std::make_unique<ViewListener>(*this)),
      m_selectionListener(std::make_unique<SelectionListener>(*this)) {
    setObjectName(QStringLiteral("QuorelHost"));
    resize(1180, 760);
    m_view = new MapView(this);
    m_view->SetIdentifyHandler([this](const ShapePoint& at) { IdentifyAt(at); });
    m_tableModel = new AttributeTableModel(this);
    m_table = new QTableView(this);
    m_table->setObjectName(QStringLiteral("attributeTable"));
    m_table->setModel(m_tableModel);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setAlternatingRowColors(true);
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_table->verticalHeader()->setDefaultSectionSize(22);
    m_table->verticalHeader()->setVisible(false);
    auto* tablePane = new QWidget(this);
    auto* tableLayout = new QVBoxLayout(tablePane);
    tableLayout->setContentsMargins(0, 4, 0, 0);
    tableLayout->setSpacing(2);
    auto* selectionRow = new QHBoxLayout;
    m_selectedOnly = new QCheckBox(QStringLiteral("Sélection seule"), tablePane);
    m_selectedOnly->setObjectName(QStringLiteral("selectedOnly"));
    m_selectedOnly->setToolTip(
        QStringLiteral("N'afficher que les entités sélectionnées de la couche"));
    connect(m_selectedOnly, &QCheckBox::toggled, this,
            [this](bool on) { m_tableModel->SetSelectedOnly(on); });
    m_selectionCount = new QLabel(tablePane);
    m_selectionCount->setObjectName(QStringLiteral("selectionCount"));
    selectionRow->addWidget(m_selectedOnly);
    selectionRow->addWidget(m_selectionCount, 1);
    tableLayout->addLayout(selectionRow);
    tableLayout->addWidget(m_table, 1);
    auto* splitter = new QSplitter(Qt::Vertical, this);
    splitter->addWidget(m_view);
    splitter->addWidget(tablePane);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 1);
    // Enough rows of the table to read a few features without hiding the map.
    splitter->setSizes({470, 230});
    setCentralWidget(splitter);

    BuildDocks();
    BuildActions();
    ConnectStatusBar();

    m_components = std::make_unique<ComponentSet>(m_options.registryPath, m_app);
    m_components->Load(m_options.progIds.empty()
                           ? ComponentSet::RegisteredProgIds(m_options.registryPath)
                           : m_options.progIds);
    m_commands = std::make_unique<ComponentCommands>(
        *this, *m_components, [this](std::size_t index) { ClickCommand(index); });
    ShowLoadFailures();
    FollowFocusMap();
    Refresh();
    UpdateTitle();
}

MainWindow::~MainWindow() {
    if (m_listenedMap) {
        m_listenedMap->Unadvise(m_viewListener.get());
    }
    for (const auto& source : m_selectionSources) {
        if (const auto layer = source.lock()) {
            host::SelectionOf(layer)->Unadvise(m_selectionListener.get());
        }
    }
    // The components' objects refer to the application; they go before it.
    m_commands.reset();
    m_components.reset();
}

template <typename Action> void MainWindow::Guarded(const QString& what, Action action) {
    try {
        action();
    } catch (const std::exception& e) {
        QMessageBox::warning(this, what, QString::fromUtf8(e.what()));
    }
}

void MainWindow::BuildDocks() {
    auto* panel = new QWidget(this);
    auto* layout = new QVBoxLayout(panel);
    layout->setContentsMargins(6, 6, 6, 6);
    m_toc = new LayerTree(panel);
    layout->addWidget(m_toc, 1);
    auto* label = new QLabel(QStringLiteral("Champ représenté :"), panel);
    m_fieldChoice = new QComboBox(panel);
    m_fieldChoice->setObjectName(QStringLiteral("shadedField"));
    label->setBuddy(m_fieldChoice);
    layout->addWidget(label);
    layout->addWidget(m_fieldChoice);

    auto* dock = new QDockWidget(QStringLiteral("Table des matières"), this);
    dock->setObjectName(QStringLiteral("contentsDock"));
    dock->setFeatures(QDockWidget::DockWidgetMovable);
    dock->setWidget(panel);
    dock->setMinimumWidth(230);
    addDockWidget(Qt::LeftDockWidgetArea, dock);

    m_identify = new IdentifyPanel(this);
    m_identifyDock = new QDockWidget(QStringLiteral("Identifier"), this);
    m_identifyDock->setObjectName(QStringLiteral("identifyDock"));
    m_identifyDock->setWidget(m_identify);
    m_identifyDock->setMinimumWidth(250);
    addDockWidget(Qt::RightDockWidgetArea, m_identifyDock);
    m_identifyDock->hide();

    LayerTree::Handlers handlers;
    handlers.chosen = [this](const std::shared_ptr<host::ILayer>& layer) {
        SetCurrentLayer(std::dynamic_pointer_cast<host::IFeatureLayer>(layer));
    };
    handlers.shown = [this] { Redraw(); };
    handlers.renamed = [this](const std::shared_ptr<host::ILayer>& layer, const QString& name) {
        RenameLayer(layer, name);
    };
    handlers.zoomTo = [this](const std::shared_ptr<host::ILayer>& layer) { ZoomToLayer(layer); };
    handlers.remove = [this](const std::shared_ptr<host::ILayer>& layer) { RemoveLayer(layer); };
    handlers.selectable = [this](const std::shared_ptr<host::IFeatureLayer>& layer, bool on) {
        SetLayerSelectable(layer, on);
    };
    m_toc->SetHandlers(std::move(handlers));
    connect(m_fieldChoice, &QComboBox::activated, this, [this](int index) {
        Guarded(QStringLiteral("Représentation"),
                [&] { ShadeField(index <= 0 ? QString() : m_fieldChoice->itemText(index)); });
    });
}

void MainWindow::BuildActions() {
    QMenu* file = menuBar()->addMenu(QStringLiteral("&Fichier"));
    QToolBar* standard = addToolBar(QStringLiteral("Standard"));
    standard->setObjectName(QStringLiteral("standardToolBar"));
    standard->setToolButtonStyle(Qt::ToolButtonTextOnly);
    const auto add = [this](QMenu* menu, const QString& text, auto slot) {
        QAction* action = menu->addAction(text);
        connect(action, &QAction::triggered, this, slot);
        return action;
    };
    add(file, QStringLiteral("&Nouveau"), [this] { NewDocument(); });
    QAction* open = add(file, QStringLiteral("&Ouvrir…"), [this] {
        const QString path = QFileDialog::getOpenFileName(
            this, QStringLiteral("Ouvrir un document"), QFileInfo(m_documentPath).path(),
            QStringLiteral("Documents Quorel (*.qmap)"));
        if (!path.isEmpty()) {
            Guarded(QStringLiteral("Ouvrir"), [&] { OpenDocumentFile(path); });
        }
    });
    open->setShortcut(QKeySequence::Open);
    const auto saveAs = [this] {
        const QString path = QFileDialog::getSaveFileName(
            this, QStringLiteral("Enregistrer le document"), m_documentPath,
            QStringLiteral("Documents Quorel (*.qmap)"));
        if (!path.isEmpty()) {
            Guarded(QStringLiteral("Enregistrer"), [&] { SaveDocumentFile(path); });
        }
    };
    QAction* save = add(file, QStringLiteral("&Enregistrer"), [this, saveAs] {
        if (m_documentPath.isEmpty()) {
            saveAs();
        } else {
            Guarded(QStringLiteral("Enregistrer"), [&] { SaveDocumentFile(m_documentPath); });
        }
    });
    save->setShortcut(QKeySequence::Save);
    add(file, QStringLiteral("Enregistrer &sous…"), saveAs);
    file->addSeparator();
    add(file, QStringLiteral("&Quitter"), [this] { close(); });

    QMenu* layers = menuBar()->addMenu(QStringLiteral("&Couches"));
    QAction* addLayer = add(layers, QStringLiteral("&Ajouter une couche…"), [this] {
        const QString path = QFileDialog::getOpenFileName(
            this, QStringLiteral("Ajouter une couche"), QFileInfo(m_documentPath).path(),
            QStringLiteral("Couches (*.shp *.gpkg);;Shapefiles (*.shp);;GeoPackages (*.gpkg)"));
        if (!path.isEmpty()) {
            Guarded(QStringLiteral("Ajouter une couche"), [&] {
                // A file of several layers: the user picks one.
                std::string layer;
                const auto names = source::SourceLayers(path.toStdString());
                if (names.size() > 1) {
                    QStringList items;
                    for (const auto& name : names) {
                        items << QString::fromStdString(name);
                    }
                    bool chosen = false;
                    const QString item =
                        QInputDialog::getItem(this, QStringLiteral("Ajouter une couche"),
                                              QStringLiteral("Couche :"), items, 0, false, &chosen);
                    if (!chosen) {
                        return;
                    }
                    layer = item.toStdString();
                }
                AddLayerOf(path, layer);
            });
        }
    });
    QAction* remove = add(layers, QStringLiteral("&Retirer la couche"), [this] {
        if (const auto layer = m_toc->LayerOf(m_toc->currentItem())) {
            RemoveLayer(layer);
        }
    });
    add(layers, QStringLiteral("Re&nommer la couche"), [this] {
        if (QTreeWidgetItem* item = m_toc->currentItem(); m_toc->LayerOf(item)) {
            m_toc->editItem(item);
        }
    });
    add(layers, QStringLiteral("&Zoom sur la couche"), [this] {
        if (const auto layer = m_toc->LayerOf(m_toc->currentItem())) {
            ZoomToLayer(layer);
        }
    });
    layers->addSeparator();
    add(layers, QStringLiteral("Nouveau &groupe"), [this] {
        bool ok = false;
        const QString name = QInputDialog::getText(this, QStringLiteral("Nouveau groupe"),
                                                   QStringLiteral("Nom du groupe :"),
                                                   QLineEdit::Normal, QString(), &ok);
        if (ok && !name.isEmpty()) {
            auto group = std::make_shared<host::map::GroupLayer>();
            group->SetName(name.toStdString());
            m_app->Document()->FocusMap()->AddLayer(group);
            Refresh();
        }
    });

    // The map's tools start a second row, beside the components' commands.
    addToolBarBreak();
    QToolBar* mapTools = addToolBar(QStringLiteral("Carte"));
    mapTools->setObjectName(QStringLiteral("mapToolBar"));
    mapTools->setToolButtonStyle(Qt::ToolButtonTextOnly);
    AddMapTools(*mapTools, *m_view);
    QMenu* map = menuBar()->addMenu(QStringLiteral("C&arte"));
    map->addActions(mapTools->actions());
    map->addSeparator();
    QAction* clear =
        add(map, QStringLiteral("&Effacer la sélection"), [this] { ClearSelections(); });
    clear->setObjectName(QStringLiteral("clearSelection"));
    map->addAction(m_identifyDock->toggleViewAction());

    QMenu* editor = menuBar()->addMenu(QStringLiteral("É&diteur"));
    m_editAction = editor->addAction(QStringLiteral("Démarrer la mise à jour"));
    m_editAction->setObjectName(QStringLiteral("editing"));
    m_editAction->setCheckable(true);
    connect(m_editAction, &QAction::toggled, this, [this](bool on) { SetEditing(on); });

    standard->addAction(open);
    standard->addAction(save);
    standard->addSeparator();
    standard->addAction(addLayer);
    standard->addAction(remove);
    standard->addSeparator();
    standard->addAction(m_editAction);
}

void MainWindow::ConnectStatusBar() {
    m_message = new QLabel(this);
    m_message->setObjectName(QStringLiteral("statusMessage"));
    m_message->setMinimumWidth(200);
    m_progress = new QProgressBar(this);
    m_progress->setObjectName(QStringLiteral("calculatorProgress"));
    m_progress->setRange(0, 1000);
    m_progress->setMaximumWidth(180);
    m_progress->setTextVisible(false);
    m_progress->hide();
    m_editState = new QLabel(this);
    m_editState->setObjectName(QStringLiteral("editState"));
    statusBar()->addWidget(m_message, 1);
    statusBar()->addPermanentWidget(m_progress);
    statusBar()->addPermanentWidget(m_editState);

    m_app->Bar()->SetMessageListener([this](std::int32_t pane, const std::string& text) {
        if (pane != 0) {
            return;
        }
        m_message->setText(Q(text));
        // The calculator blocks the event loop: paint now, or the text is never seen.
        m_message->repaint();
        if (text.empty()) {
            // A component cleared its message: a computation may have changed the data.
            ScheduleRefresh();
        }
    });
    m_app->Bar()->SetProgressListener([this](double fraction) {
        m_progress->setVisible(fraction >= 0 && fraction < 1);
        m_progress->setValue(fraction < 0 ? 0 : static_cast<int>(std::lround(fraction * 1000)));
        m_progress->repaint();
    });
}

void MainWindow::ShowLoadFailures() {
    const QString failures = m_commands->FailureText();
    if (failures.isEmpty()) {
        return;
    }
    m_failureBox = new QMessageBox(
        QMessageBox::Warning, QStringLiteral("Composants"),
        QStringLiteral("Ces composants n'ont pas été chargés ; leurs commandes restent "
                       "désactivées.\n\n") +
            failures,
        QMessageBox::Ok, this);
    m_failureBox->setObjectName(QStringLiteral("loadFailures"));
    // Once the window is up, without holding up its start.
    QTimer::singleShot(0, m_failureBox, [box = m_failureBox] { box->open(); });
}

void MainWindow::ClickCommand(std::size_t index) {
    const auto command = m_components->Commands().at(index).command;
    command->OnClick(); // shows the component's modal dialog; returns when it is closed
    Refresh();
    m_commands->UpdateStates();
}

void MainWindow::FollowFocusMap() {
    const auto map = std::dynamic_pointer_cast<host::map::Map>(m_app->Document()->FocusMap());
    if (map == m_listenedMap) {
        return;
    }
    if (m_listenedMap) {
        m_listenedMap->Unadvise(m_viewListener.get());
    }
    m_listenedMap = map;
    if (m_listenedMap) {
        m_listenedMap->Advise(m_viewListener.get());
    }
}

void MainWindow::NewDocument() {
    m_app->NewDocument();
    m_documentPath.clear();
    m_current.reset();
    m_view->SetShading(std::nullopt);
    m_view->ZoomToFullExtent();
    FollowFocusMap();
    Refresh();
    UpdateTitle();
}

void MainWindow::OpenDocumentFile(const QString& path) {
    auto document = LoadMapDocument(*m_app, path.toStdString());
    m_app->OpenDocument(std::move(document));
    m_documentPath = path;
    m_current.reset();
    m_view->SetShading(std::nullopt);
    m_view->ZoomToFullExtent();
    m_knownFields.clear();
    m_geometry.clear();
    FollowFocusMap();
    Refresh();
    UpdateTitle();
}

void MainWindow::SaveDocumentFile(const QString& path) {
    const auto document = std::dynamic_pointer_cast<host::map::MxDocument>(m_app->Document());
    SaveMapDocument(*document, path.toStdString());
    m_documentPath = path;
    UpdateTitle();
}

std::shared_ptr<host::IFeatureLayer> MainWindow::AddShapefile(const QString& path) {
    return AddLayerOf(path, "");
}

std::shared_ptr<host::IFeatureLayer> MainWindow::AddLayerOf(const QString& path,
                                                            const std::string& layerName) {
    auto layer = source::OpenSourceLayer(*m_app, path.toStdString(), layerName);
    Refresh();
    return layer;
}

void MainWindow::RemoveLayer(const std::shared_ptr<host::ILayer>& layer) {
    const auto map = m_app->Document()->FocusMap();
    for (std::int32_t i = 0; i < map->LayerCount(); ++i) {
        if (map->Layer(i) == layer) {
            map->DeleteLayer(layer);
            break;
        }
        if (const auto group = std::dynamic_pointer_cast<host::map::GroupLayer>(map->Layer(i));
            group && group->Remove(layer)) {
            m_listenedMap->RaiseContentsChanged();
            break;
        }
    }
    if (layer == m_current) {
        m_current.reset();
        m_view->SetShading(std::nullopt);
    }
    Refresh();
}

void MainWindow::RenameLayer(const std::shared_ptr<host::ILayer>& layer, const QString& name) {
    if (name.isEmpty() || Q(layer->Name()) == name) {
        return;
    }
    layer->SetName(name.toStdString());
    Refresh();
}

void MainWindow::SetLayerSelectable(const std::shared_ptr<host::IFeatureLayer>& layer,
                                    bool selectable) {
    layer->SetSelectable(selectable);
    m_toc->Fill(*m_app->Document()->FocusMap(), m_current);
}

void MainWindow::SetLayerShown(const std::shared_ptr<host::ILayer>& layer, bool shown) {
    m_toc->SetShown(layer, shown); // tells Redraw
}

void MainWindow::ZoomToLayer(const std::shared_ptr<host::ILayer>& layer) {
    Extent extent{1, 1, 0, 0};
    for (const auto& feature : FeatureLayersOf(layer)) {
        if (const auto geometry = GeometryOf(*feature)) {
            extent = Union(extent, geometry->Bounds());
        }
    }
    m_view->ZoomToExtent(extent);
}

std::shared_ptr<host::ILayer> MainWindow::FindLayer(const QString& name) const {
    return m_toc->FindLayer(name);
}

void MainWindow::SetCurrentLayer(const std::shared_ptr<host::IFeatureLayer>& layer) {
    if (!layer || layer == m_current) {
        return;
    }
    m_current = layer;
    FillFieldChoice();
    FillTable();
    m_toc->Fill(*m_app->Document()->FocusMap(), m_current);
}

void MainWindow::ShadeField(const QString& field) {
    if (field.isEmpty() || !m_current) {
        m_view->SetShading(std::nullopt);
        FillFieldChoice();
        return;
    }
    const LayerData layerData = LayerDataOf(*m_current);
    m_view->SetShading(ShadingState(
        m_current, field.toStdString(),
        host::gdal::ReadNumericColumn(layerData.path, field.toStdString(), layerData.layer)));
    FillFieldChoice();
}

void MainWindow::IdentifyAt(const ShapePoint& at) {
    m_identifyDock->show();
    const auto hit = m_view->FeatureAt(at);
    m_view->SetHighlight(hit);
    if (!hit) {
        m_identify->ShowNothing();
        return;
    }
    Guarded(QStringLiteral("Identifier"), [&] {
        const auto table = TableOf(*hit->layer);
        if (!table || hit->feature >= table->RowCount()) {
            throw Error(error_number::kHostInvalidIndex, "Identify",
                        "The table of " + hit->layer->Name() + " has no row " +
                            std::to_string(hit->feature));
        }
        const auto& shading = m_view->CurrentShading();
        m_identify->ShowFeature(Q(hit->layer->Name()), *table, hit->feature,
                                shading && shading->Shades(*hit->layer) ? Q(shading->Field())
                                                                        : QString());
        if (hit->layer == m_current) {
            // Rows are the features in order: the table shows the one found too, unless
            // "selected only" leaves it out.
            if (const auto row = m_tableModel->ModelRow(hit->feature)) {
                m_table->selectRow(*row);
                m_table->scrollTo(m_tableModel->index(*row, 0));
            }
        }
    });
}

void MainWindow::ClearSelections() {
    for (const auto& layer : FeatureLayersOf(*m_app->Document()->FocusMap())) {
        if (host::IFeatureSelection* selection = host::SelectionOf(layer)) {
            selection->Clear();
        }
    }
}

QString MainWindow::SelectionCountText() const {
    return m_selectionCount->text();
}

void MainWindow::FollowSelections(const std::vector<std::shared_ptr<host::IFeatureLayer>>& layers) {
    for (const auto& source : m_selectionSources) {
        if (const auto layer = source.lock()) {
            host::SelectionOf(layer)->Unadvise(m_selectionListener.get());
        }
    }
    m_selectionSources.clear();
    for (const auto& layer : layers) {
        if (host::IFeatureSelection* selection = host::SelectionOf(layer)) {
            selection->Advise(m_selectionListener.get());
            m_selectionSources.push_back(layer);
        }
    }
}

void MainWindow::ScheduleSelectionUpdate() {
    if (m_selectionUpdateScheduled) {
        return;
    }
    m_selectionUpdateScheduled = true;
    // Runs from the event loop, also the one of a component's window.
    QTimer::singleShot(0, this, [this] {
        m_selectionUpdateScheduled = false;
        ShowCurrentSelection();
        Redraw();
    });
}

void MainWindow::ShowCurrentSelection() {
    const host::IFeatureSelection* selection = m_current ? host::SelectionOf(m_current) : nullptr;
    std::vector<std::int64_t> ids =
        selection ? selection->SelectedIds() : std::vector<std::int64_t>();
    const auto& table = m_tableModel->Table();
    std::size_t shown = 0;
    if (table) {
        for (const std::int64_t id : ids) {
            shown += table->RowOfRecord(id) ? 1 : 0;
        }
    }
    m_selectionCount->setText(table ? QStringLiteral("%1 sélectionnée(s) sur %2")
                                          .arg(static_cast<qulonglong>(shown))
                                          .arg(static_cast<qulonglong>(table->RowCount()))
                                    : QString());
    m_tableModel->SetSelection(std::move(ids));
}

std::shared_ptr<const std::vector<std::uint8_t>>
MainWindow::SelectedMarks(const std::shared_ptr<host::IFeatureLayer>& layer,
                          std::size_t featureCount) {
    const host::IFeatureSelection* selection = host::SelectionOf(layer);
    if (selection == nullptr || selection->SelectedIds().empty()) {
        return nullptr;
    }
    // Kept while the selection and the table stay: a redraw need not read the table again.
    SelectionMarks& kept = m_selectionMarks[layer.get()];
    std::shared_ptr<const TableReader> table;
    try {
        table = kept.table && kept.table->IsCurrent() ? kept.table : TableOf(*layer);
    } catch (const std::exception&) {
        return nullptr; // a layer whose data went away is drawn without its selection
    }
    if (kept.marks && kept.table == table && kept.ids == selection->SelectedIds() &&
        kept.marks->size() == featureCount) {
        return kept.marks;
    }
    // The map's features are the table's rows, one for one.
    auto marks = std::make_shared<std::vector<std::uint8_t>>(featureCount, 0);
    for (const std::int64_t id : selection->SelectedIds()) {
        if (const auto row = table->RowOfRecord(id); row && *row < featureCount) {
            (*marks)[*row] = 1;
        }
    }
    kept = {selection->SelectedIds(), table, marks};
    return marks;
}

void MainWindow::SetEditing(bool editing) {
    m_app->EditorExtension()->SetEditState(editing ? host::kEditStateEditing
                                                   : host::kEditStateNotEditing);
    m_editAction->blockSignals(true);
    m_editAction->setChecked(editing);
    m_editAction->setText(editing ? QStringLiteral("Arrêter la mise à jour")
                                  : QStringLiteral("Démarrer la mise à jour"));
    m_editAction->blockSignals(false);
    m_editState->setText(editing ? QStringLiteral("Mise à jour en cours") : QString());
}

bool MainWindow::IsEditing() const {
    return m_app->EditorExtension()->EditState() == host::kEditStateEditing;
}

QAction* MainWindow::CommandAction(const QString& progId) const {
    return m_commands->CommandAction(progId);
}

QToolBar* MainWindow::CategoryToolBar(const QString& category) const {
    return m_commands->CategoryToolBar(category);
}

QString MainWindow::StatusMessage() const {
    return m_message->text();
}

void MainWindow::ScheduleRefresh() {
    if (m_refreshScheduled) {
        return;
    }
    m_refreshScheduled = true;
    // Runs from the event loop, also the one of a component's modal dialog.
    QTimer::singleShot(0, this, [this] {
        m_refreshScheduled = false;
        FollowFocusMap();
        Refresh();
    });
}

void MainWindow::Refresh() {
    const auto layers = FeatureLayersOf(*m_app->Document()->FocusMap());
    if (!m_current || std::find(layers.begin(), layers.end(), m_current) == layers.end()) {
        m_current = layers.empty() ? nullptr : layers.front();
        if (const auto& shading = m_view->CurrentShading();
            shading && (!m_current || !shading->Shades(*m_current))) {
            m_view->SetShading(std::nullopt);
        }
    }
    FollowSelections(layers);
    LookForNewFields();
    m_toc->Fill(*m_app->Document()->FocusMap(), m_current);
    FillFieldChoice();
    FillTable();
    Redraw();
}

void MainWindow::LookForNewFields() {
    std::shared_ptr<host::IFeatureLayer> changedLayer;
    std::string newField;
    for (const auto& layer : FeatureLayersOf(*m_app->Document()->FocusMap())) {
        const std::string path = LayerDataOf(*layer).Key();
        if (path.empty()) {
            continue;
        }
        const auto names = FieldNames(*layer);
        const auto known = m_knownFields.find(path);
        if (known != m_knownFields.end()) {
            for (const auto& name : names) {
                if (std::find(known->second.begin(), known->second.end(), name) ==
                    known->second.end()) {
                    changedLayer = layer;
                    newField = name;
                }
            }
        }
        m_knownFields[path] = names;
    }
    if (!changedLayer) {
        return;
    }
    const auto fields = changedLayer->FeatureClass()->Fields();
    const std::int32_t index = fields->FindField(newField);
    if (index < 0 || !IsNumericType(fields->Field(index)->Type())) {
        return;
    }
    m_current = changedLayer;
    try {
        ShadeField(Q(newField));
    } catch (const std::exception&) {
        // The field is there but its values cannot be read yet: show it unshaded.
        m_view->SetShading(std::nullopt);
    }
}

void MainWindow::FillFieldChoice() {
    m_fieldChoice->clear();
    m_fieldChoice->addItem(QStringLiteral("(aucun)"));
    if (!m_current || !m_current->FeatureClass()) {
        return;
    }
    const auto fields = m_current->FeatureClass()->Fields();
    for (std::int32_t i = 0; i < fields->FieldCount(); ++i) {
        const auto field = fields->Field(i);
        if (IsNumericType(field->Type())) {
            m_fieldChoice->addItem(Q(field->Name()));
        }
    }
    const auto& shading = m_view->CurrentShading();
    m_fieldChoice->setCurrentIndex(
        shading ? std::max(0, m_fieldChoice->findText(Q(shading->Field()))) : 0);
}

std::shared_ptr<const TableReader> MainWindow::TableOf(const host::IFeatureLayer& layer) {
    const std::string dbfPath = DbfPathOf(layer);
    const std::string path = dbfPath.empty() ? LayerDataOf(layer).Key() : dbfPath;
    if (path.empty() || !layer.FeatureClass()) {
        return nullptr;
    }
    if (const auto& shown = m_tableModel->Table();
        shown && shown->Path() == path && shown->IsCurrent()) {
        return shown;
    }
    if (dbfPath.empty()) {
        return std::make_shared<FeatureClassTable>(path, layer.FeatureClass());
    }
    return std::make_shared<DbfTableReader>(dbfPath);
}

void MainWindow::FillTable() {
    std::shared_ptr<const TableReader> table;
    try {
        table = m_current ? TableOf(*m_current) : nullptr;
    } catch (const std::exception&) {
        table = nullptr; // a layer whose data went away is listed without its table
    }
    if (table == m_tableModel->Table()) {
        ShowCurrentSelection();
        return;
    }
    m_tableModel->SetTable(std::move(table));
    ShowCurrentSelection();
    // Sized on the rows read first; the FID column must also hold the last and longest FID.
    m_table->resizeColumnsToContents();
    if (const auto& shown = m_tableModel->Table(); shown && shown->RowCount() > 0) {
        const QString last =
            QString::number(static_cast<qulonglong>(shown->RecordOf(shown->RowCount() - 1)));
        m_table->setColumnWidth(0, std::max(m_table->columnWidth(0),
                                            m_table->fontMetrics().horizontalAdvance(last) + 16));
    }
}

std::shared_ptr<const LayerGeometry> MainWindow::GeometryOf(const host::IFeatureLayer& layer) {
    if (!layer.FeatureClass() || layer.FeatureClass()->ShapeType() != host::kGeometryPolygon) {
        return nullptr;
    }
    const LayerData layerData = LayerDataOf(layer);
    const std::string path = layerData.Key();
    auto cached = m_geometry.find(path);
    if (cached == m_geometry.end()) {
        try {
            cached =
                m_geometry
                    .emplace(path,
                             std::make_shared<const LayerGeometry>(LayerGeometry::FromShapes(
                                 host::gdal::ReadLayerShapes(layerData.path, layerData.layer))))
                    .first;
        } catch (const std::exception&) {
            return nullptr; // a layer whose data went away is listed but not drawn
        }
    }
    return cached->second;
}

void MainWindow::Redraw() {
    std::vector<DrawnLayer> drawn;
    const auto layers = FeatureLayersOf(*m_app->Document()->FocusMap());
    // The top of the contents is drawn last, over the others.
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        if (auto geometry = GeometryOf(**it)) {
            auto selected = SelectedMarks(*it, geometry->FeatureCount());
            drawn.push_back({*it, std::move(geometry),
                             LayerFill(static_cast<std::size_t>(layers.rend() - it - 1)),
                             m_toc->IsShown(*it), std::move(selected)});
        }
    }
    std::erase_if(m_selectionMarks, [&](const auto& entry) {
        return std::none_of(drawn.begin(), drawn.end(), [&](const DrawnLayer& d) {
            return d.layer.get() == entry.first && d.selected;
        });
    });
    // The geometry of layers gone from the map is let go: a large layer holds much memory.
    std::erase_if(m_geometry, [&](const auto& entry) {
        return std::none_of(drawn.begin(), drawn.end(),
                            [&](const DrawnLayer& d) { return d.geometry == entry.second; });
    });
    m_view->SetLayers(std::move(drawn));
}

void MainWindow::UpdateTitle() {
    const QString document = m_documentPath.isEmpty() ? QStringLiteral("Sans titre")
                                                      : QFileInfo(m_documentPath).fileName();
    setWindowTitle(document + QStringLiteral(" — Quorel"));
}

} // namespace quorel::host_app
