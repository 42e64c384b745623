#include "apps/quorel-host/MainWindow.h"

#include "apps/quorel-host/MapDocumentFile.h"
#include "host/shapefile/Shapefile.h"
#include "util/Error.h"
#include "util/NumberText.h"

#include <QAction>
#include <QApplication>
#include <QComboBox>
#include <QDockWidget>
#include <QFileDialog>
#include <QFileInfo>
#include <QHeaderView>
#include <QInputDialog>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QSplitter>
#include <QStatusBar>
#include <QTableWidget>
#include <QTimer>
#include <QToolBar>
#include <QTreeWidget>
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

bool IsNumeric(std::int32_t type) {
    return type >= host::kFieldTypeSmallInteger && type <= host::kFieldTypeDouble;
}

std::string ShpPathOf(const host::IFeatureLayer& layer) {
    const auto shapefile =
        std::dynamic_pointer_cast<host::shapefile::ShapefileFeatureClass>(layer.FeatureClass());
    return shapefile ? shapefile->ShpPath() : std::string();
}

std::vector<std::string> FieldNames(const host::IFeatureLayer& layer) {
    std::vector<std::string> names;
    if (const auto featureClass = layer.FeatureClass()) {
        const auto fields = featureClass->Fields();
        for (std::int32_t i = 0; i < fields->FieldCount(); ++i) {
            names.push_back(fields->Field(i)->Name());
        }
    }
    return names;
}

// Every feature layer of the map, groups opened, in map order (top of the contents first).
void CollectFeatureLayers(const host::ILayer& layer, const std::shared_ptr<host::ILayer>& self,
                          std::vector<std::shared_ptr<host::IFeatureLayer>>& found) {
    if (const auto* group = dynamic_cast<const host::IGroupLayer*>(&layer)) {
        for (std::int32_t i = 0; i < group->Count(); ++i) {
            const auto child = group->Layer(i);
            CollectFeatureLayers(*child, child, found);
        }
    } else if (auto feature = std::dynamic_pointer_cast<host::IFeatureLayer>(self)) {
        found.push_back(std::move(feature));
    }
}

std::vector<std::shared_ptr<host::IFeatureLayer>> FeatureLayersOf(const host::IMap& map) {
    std::vector<std::shared_ptr<host::IFeatureLayer>> found;
    for (std::int32_t i = 0; i < map.LayerCount(); ++i) {
        const auto layer = map.Layer(i);
        CollectFeatureLayers(*layer, layer, found);
    }
    return found;
}

QString CellText(const host::Value& value) {
    if (const auto* number = std::get_if<double>(&value)) {
        return Q(util::FormatNumber(*number, '.'));
    }
    if (const auto* text = std::get_if<std::string>(&value)) {
        return Q(*text);
    }
    return {};
}

} // namespace

QImage PictureToImage(const com::Picture& picture) {
    const auto width = static_cast<std::size_t>(std::max(picture.width, 0));
    const auto height = static_cast<std::size_t>(std::max(picture.height, 0));
    if (width == 0 || height == 0 || picture.pixels.size() < width * height * 3) {
        return {};
    }
    QImage image(picture.width, picture.height, QImage::Format_RGB888);
    for (std::size_t row = 0; row < height; ++row) {
        const char* source = picture.pixels.data() + (height - 1 - row) * width * 3;
        uchar* target = image.scanLine(static_cast<int>(row));
        for (std::size_t x = 0; x < width; ++x) {
            target[x * 3] = static_cast<uchar>(source[x * 3 + 2]);
            target[x * 3 + 1] = static_cast<uchar>(source[x * 3 + 1]);
            target[x * 3 + 2] = static_cast<uchar>(source[x * 3]);
        }
    }
    return image;
}

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

MainWindow::MainWindow(Options options, QWidget* parent)
    : QMainWindow(parent), m_options(std::move(options)),
      m_app(std::make_shared<host::shapefile::Application>()),
      m_viewListener(std::make_unique<ViewListener>(*this)) {
    setObjectName(QStringLiteral("QuorelHost"));
    resize(1180, 760);
    m_view = new MapView(this);
    m_table = new QTableWidget(this);
    m_table->setObjectName(QStringLiteral("attributeTable"));
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setAlternatingRowColors(true);
    m_table->verticalHeader()->setDefaultSectionSize(22);
    m_table->verticalHeader()->setVisible(false);
    auto* splitter = new QSplitter(Qt::Vertical, this);
    splitter->addWidget(m_view);
    splitter->addWidget(m_table);
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
    BuildCommands();
    BuildRootMenus();
    FollowFocusMap();
    Refresh();
    UpdateTitle();
}

MainWindow::~MainWindow() {
    if (m_listenedMap) {
        m_listenedMap->Unadvise(m_viewListener.get());
    }
    // The components' objects refer to the application; they go before it.
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
    m_toc = new QTreeWidget(panel);
    m_toc->setObjectName(QStringLiteral("contents"));
    m_toc->setHeaderHidden(true);
    m_toc->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::SelectedClicked);
    m_toc->setToolTip(QStringLiteral("Case cochée : couche sélectionnable. F2 : renommer."));
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

    connect(m_toc, &QTreeWidget::itemChanged, this,
            [this](QTreeWidgetItem* item, int) { ContentsItemChanged(item); });
    connect(m_toc, &QTreeWidget::currentItemChanged, this,
            [this](QTreeWidgetItem* item, QTreeWidgetItem*) {
                if (m_filling || item == nullptr) {
                    return;
                }
                const auto found = m_itemLayers.find(item);
                if (found == m_itemLayers.end()) {
                    return;
                }
                if (auto layer = std::dynamic_pointer_cast<host::IFeatureLayer>(found->second)) {
                    SetCurrentLayer(layer);
                }
            });
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
            QStringLiteral("Shapefiles (*.shp)"));
        if (!path.isEmpty()) {
            Guarded(QStringLiteral("Ajouter une couche"), [&] { AddShapefile(path); });
        }
    });
    QAction* remove = add(layers, QStringLiteral("&Retirer la couche"), [this] {
        const auto found = m_itemLayers.find(m_toc->currentItem());
        if (found != m_itemLayers.end()) {
            RemoveLayer(found->second);
        }
    });
    add(layers, QStringLiteral("Re&nommer la couche"), [this] {
        if (QTreeWidgetItem* item = m_toc->currentItem(); m_itemLayers.contains(item)) {
            m_toc->editItem(item);
        }
    });
    layers->addSeparator();
    add(layers, QStringLiteral("Nouveau &groupe"), [this] {
        bool ok = false;
        const QString name = QInputDialog::getText(this, QStringLiteral("Nouveau groupe"),
                                                   QStringLiteral("Nom du groupe :"),
                                                   QLineEdit::Normal, QString(), &ok);
        if (ok && !name.isEmpty()) {
            auto group = std::make_shared<host::shapefile::GroupLayer>();
            group->SetName(name.toStdString());
            m_app->Document()->FocusMap()->AddLayer(group);
            Refresh();
        }
    });

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

void MainWindow::BuildCommands() {
    const auto& commands = m_components->Commands();
    for (std::size_t i = 0; i < commands.size(); ++i) {
        com::ICommand& command = *commands[i].command.get();
        const QString category = Q(command.Category());
        QToolBar*& bar = m_categoryBars[category];
        QMenu* menu = nullptr;
        for (QAction* action : menuBar()->actions()) {
            if (action->menu() != nullptr && action->menu()->objectName() == category) {
                menu = action->menu();
            }
        }
        if (bar == nullptr) {
            bar = addToolBar(category);
            bar->setObjectName(category);
            bar->setIconSize(QSize(36, 32));
            bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
            menu = menuBar()->addMenu(category);
            menu->setObjectName(category);
        }
        auto* action = new QAction(Q(command.Caption()), this);
        action->setObjectName(Q(commands[i].progId));
        action->setToolTip(Q(command.Tooltip()));
        action->setStatusTip(Q(command.Message()));
        const QImage image = PictureToImage(command.BitmapData());
        if (!image.isNull()) {
            action->setIcon(QIcon(QPixmap::fromImage(image)));
        }
        connect(action, &QAction::triggered, this, [this, i] { ClickCommand(i); });
        bar->addAction(action);
        menu->addAction(action);
        m_commandActions.push_back(action);
    }
    UpdateCommandStates();
}

void MainWindow::BuildRootMenus() {
    for (const RootMenu& root : m_components->Menus()) {
        QMenu* menu = menuBar()->addMenu(Q(root.caption));
        menu->setObjectName(Q(root.progId));
        menu->setToolTip(Q(root.name));
        for (const MenuItem& item : root.items) {
            if (item.startsGroup) {
                menu->addSeparator();
            }
            // Items are commands of other components; one not registered here can only be named.
            QAction* action = menu->addAction(Q(item.progId));
            action->setObjectName(Q(item.progId));
            action->setEnabled(false);
            if (item.registered) {
                action->setToolTip(QStringLiteral("Commande d'un autre composant"));
            }
        }
    }
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

void MainWindow::ClickCommand(std::size_t index) {
    const auto command = m_components->Commands().at(index).command;
    command->OnClick(); // shows the component's modal dialog; returns when it is closed
    Refresh();
    UpdateCommandStates();
}

void MainWindow::UpdateCommandStates() {
    const auto& commands = m_components->Commands();
    for (std::size_t i = 0; i < commands.size(); ++i) {
        m_commandActions[i]->setEnabled(commands[i].command->Enabled());
        m_commandActions[i]->setChecked(commands[i].command->Checked());
    }
}

void MainWindow::FollowFocusMap() {
    const auto map = std::dynamic_pointer_cast<host::shapefile::Map>(m_app->Document()->FocusMap());
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
    m_knownFields.clear();
    m_shapeCache.clear();
    FollowFocusMap();
    Refresh();
    UpdateTitle();
}

void MainWindow::SaveDocumentFile(const QString& path) {
    const auto document = std::dynamic_pointer_cast<host::shapefile::MxDocument>(m_app->Document());
    SaveMapDocument(*document, path.toStdString());
    m_documentPath = path;
    UpdateTitle();
}

std::shared_ptr<host::IFeatureLayer> MainWindow::AddShapefile(const QString& path) {
    auto layer = m_app->AddShapefileLayer(path.toStdString());
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
        if (const auto group =
                std::dynamic_pointer_cast<host::shapefile::GroupLayer>(map->Layer(i));
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
    const QString old = Q(layer->Name());
    layer->SetName(name.toStdString());
    if (const auto& shading = m_view->CurrentShading(); shading && shading->layerName == old) {
        Shading renamed = *shading;
        renamed.layerName = name;
        m_view->SetShading(renamed);
    }
    Refresh();
}

void MainWindow::SetLayerSelectable(const std::shared_ptr<host::IFeatureLayer>& layer,
                                    bool selectable) {
    layer->SetSelectable(selectable);
    FillContents();
}

std::shared_ptr<host::ILayer> MainWindow::FindLayer(const QString& name) const {
    for (const auto& [item, layer] : m_itemLayers) {
        if (Q(layer->Name()) == name) {
            return layer;
        }
    }
    return nullptr;
}

void MainWindow::SetCurrentLayer(const std::shared_ptr<host::IFeatureLayer>& layer) {
    if (layer == m_current) {
        return;
    }
    m_current = layer;
    FillFieldChoice();
    FillTable();
    FillContents();
}

void MainWindow::ShadeField(const QString& field) {
    if (field.isEmpty() || !m_current) {
        m_view->SetShading(std::nullopt);
        FillFieldChoice();
        return;
    }
    Shading shading;
    shading.layerName = Q(m_current->Name());
    shading.field = field;
    shading.values = host::gdal::ReadNumericColumn(ShpPathOf(*m_current), field.toStdString());
    double low = 0;
    double high = 1;
    bool first = true;
    for (const auto& value : shading.values) {
        if (value) {
            low = first ? *value : std::min(low, *value);
            high = first ? *value : std::max(high, *value);
            first = false;
        }
    }
    // Degrees of membership keep their 0-1 scale, whatever values this layer happens to hold.
    if (first || (low >= 0 && high <= 1)) {
        low = 0;
        high = 1;
    }
    shading.low = low;
    shading.high = high;
    m_view->SetShading(std::move(shading));
    FillFieldChoice();
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
    for (QAction* action : m_commandActions) {
        if (action->objectName() == progId) {
            return action;
        }
    }
    return nullptr;
}

QToolBar* MainWindow::CategoryToolBar(const QString& category) const {
    const auto found = m_categoryBars.find(category);
    return found == m_categoryBars.end() ? nullptr : found->second;
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
        if (m_view->CurrentShading() &&
            (!m_current || m_view->CurrentShading()->layerName != Q(m_current->Name()))) {
            m_view->SetShading(std::nullopt);
        }
    }
    LookForNewFields();
    FillContents();
    FillFieldChoice();
    FillTable();
    Redraw();
}

void MainWindow::LookForNewFields() {
    std::shared_ptr<host::IFeatureLayer> changedLayer;
    std::string newField;
    for (const auto& layer : FeatureLayersOf(*m_app->Document()->FocusMap())) {
        const std::string path = ShpPathOf(*layer);
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
    if (index < 0 || !IsNumeric(fields->Field(index)->Type())) {
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

void MainWindow::FillContents() {
    m_filling = true;
    m_toc->clear();
    m_itemLayers.clear();
    const auto map = m_app->Document()->FocusMap();
    auto* root = new QTreeWidgetItem(m_toc, QStringList{Q(map->Name())});
    QFont bold = root->font(0);
    bold.setBold(true);
    root->setFont(0, bold);
    root->setFlags(Qt::ItemIsEnabled);
    for (std::int32_t i = 0; i < map->LayerCount(); ++i) {
        FillContentsItem(root, map->Layer(i));
    }
    m_toc->expandAll();
    m_filling = false;
}

void MainWindow::FillContentsItem(QTreeWidgetItem* parent,
                                  const std::shared_ptr<host::ILayer>& layer) {
    auto* item = new QTreeWidgetItem(parent, QStringList{Q(layer->Name())});
    m_itemLayers[item] = layer;
    item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable);
    if (const auto group = std::dynamic_pointer_cast<host::IGroupLayer>(layer)) {
        item->setIcon(0, style()->standardIcon(QStyle::SP_DirIcon));
        for (std::int32_t i = 0; i < group->Count(); ++i) {
            FillContentsItem(item, group->Layer(i));
        }
        return;
    }
    if (const auto feature = std::dynamic_pointer_cast<host::IFeatureLayer>(layer)) {
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(0, feature->Selectable() ? Qt::Checked : Qt::Unchecked);
        item->setToolTip(0, Q(ShpPathOf(*feature)));
        if (feature == m_current) {
            m_toc->setCurrentItem(item);
            QFont font = item->font(0);
            font.setBold(true);
            item->setFont(0, font);
        }
    }
}

void MainWindow::ContentsItemChanged(QTreeWidgetItem* item) {
    if (m_filling) {
        return;
    }
    const auto found = m_itemLayers.find(item);
    if (found == m_itemLayers.end()) {
        return;
    }
    const auto layer = found->second;
    const QString name = item->text(0);
    if (const auto feature = std::dynamic_pointer_cast<host::IFeatureLayer>(layer)) {
        const bool selectable = item->checkState(0) == Qt::Checked;
        if (selectable != feature->Selectable()) {
            feature->SetSelectable(selectable);
        }
    }
    if (name != Q(layer->Name())) {
        // Refilling deletes the item: leave the tree's handler first.
        QTimer::singleShot(0, this, [this, layer, name] { RenameLayer(layer, name); });
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
        if (IsNumeric(field->Type())) {
            m_fieldChoice->addItem(Q(field->Name()));
        }
    }
    const auto& shading = m_view->CurrentShading();
    m_fieldChoice->setCurrentIndex(shading ? std::max(0, m_fieldChoice->findText(shading->field))
                                           : 0);
}

void MainWindow::FillTable() {
    m_table->clear();
    m_table->setRowCount(0);
    m_table->setColumnCount(0);
    if (!m_current || !m_current->FeatureClass()) {
        return;
    }
    const auto fields = m_current->FeatureClass()->Fields();
    QStringList headers;
    std::vector<std::int32_t> shown;
    for (std::int32_t i = 0; i < fields->FieldCount(); ++i) {
        if (fields->Field(i)->Type() != host::kFieldTypeGeometry) {
            headers << Q(fields->Field(i)->Name());
            shown.push_back(i);
        }
    }
    m_table->setColumnCount(static_cast<int>(shown.size()));
    m_table->setHorizontalHeaderLabels(headers);
    const auto cursor = m_current->Search(false);
    std::vector<std::shared_ptr<host::IRow>> rows;
    while (auto row = cursor->NextRow()) {
        rows.push_back(std::move(row));
    }
    m_table->setRowCount(static_cast<int>(rows.size()));
    for (std::size_t r = 0; r < rows.size(); ++r) {
        for (std::size_t c = 0; c < shown.size(); ++c) {
            const host::Value value = rows[r]->GetValue(shown[c]);
            auto* cell = new QTableWidgetItem(CellText(value));
            if (std::holds_alternative<double>(value)) {
                cell->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            }
            m_table->setItem(static_cast<int>(r), static_cast<int>(c), cell);
        }
    }
    m_table->resizeColumnsToContents();
}

void MainWindow::Redraw() {
    std::vector<DrawnLayer> drawn;
    const auto layers = FeatureLayersOf(*m_app->Document()->FocusMap());
    // The top of the contents is drawn last, over the others.
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        const auto& layer = *it;
        if (!layer->FeatureClass() ||
            layer->FeatureClass()->ShapeType() != host::kGeometryPolygon) {
            continue;
        }
        const std::string path = ShpPathOf(*layer);
        auto cached = m_shapeCache.find(path);
        if (cached == m_shapeCache.end()) {
            try {
                cached = m_shapeCache.emplace(path, host::gdal::ReadLayerShapes(path)).first;
            } catch (const std::exception&) {
                continue; // a layer whose data went away is listed but not drawn
            }
        }
        drawn.push_back({Q(layer->Name()), cached->second,
                         LayerFill(static_cast<std::size_t>(layers.rend() - it - 1))});
    }
    m_view->SetLayers(std::move(drawn));
}

void MainWindow::UpdateTitle() {
    const QString document = m_documentPath.isEmpty() ? QStringLiteral("Sans titre")
                                                      : QFileInfo(m_documentPath).fileName();
    setWindowTitle(document + QStringLiteral(" — Quorel"));
}

} // namespace quorel::host_app
