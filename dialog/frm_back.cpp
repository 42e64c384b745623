#include "dialog/frm_back.h"

#include "criterion/FieldStatistics.h"
#include "criterion/FuzzyKind.h"
#include "criterion/Preview.h"
#include "dialog/CurrentTexts.h"
#include "dialog/FieldValuesReader.h"
#include "dialog/Pictures.h"
#include "dialog/PreviewView.h"
#include "dialog/Statistiques.h"
#include "errors/ErrorLog.h"
#include "fzy/AggregationRecords.h"
#include "fzy/IO_fzyext.h"
#include "host/gpkg/GeoPackage.h"
#include "lang/Module1.h"
#include "lang/clsResourceMDB.h"
#include "util/Error.h"
#include "util/MessageUi.h"
#include "util/NumberText.h"
#include "util/StringFunctions.h"

#include <QApplication>
#include <QEvent>
#include <QFileDialog>
#include <QFrame>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace quorel::dialog {

namespace {

constexpr const char* kFormName = "frm_back";
constexpr const char* kOpenTitle = "Définir le fichier shape contenant la donnée à traiter";
constexpr const char* kOpenFilter = "Fichiers shape (*.shp)|*.shp|Tous les fichiers (*.*)|*.*|"
                                    "GeoPackage (*.gpkg)|*.gpkg";

Error ToError(const std::exception& error, const char* source) {
    if (const auto* own = dynamic_cast<const Error*>(&error)) {
        return *own;
    }
    return Error(error_number::kHostFailure, source, error.what());
}

std::string MarkerText(const std::optional<int>& marker) {
    return marker ? std::to_string(*marker) : std::string();
}

host::IApplication& RequireApp(const ComponentState& state, const char* source) {
    if (!state.g_app) {
        throw Error(error_number::kObjectVariableNotSet, source,
                    "Object variable or With block variable not set");
    }
    return *state.g_app;
}

bool IsNumericField(const host::IField& field) {
    const std::int32_t type = field.Type();
    return type >= host::kFieldTypeSmallInteger && type <= host::kFieldTypeDouble;
}

// "description|pattern|description|pattern" as the open dialog's filter list; each
// description already names its pattern in brackets, which is what Qt reads.
std::vector<std::string> FilterEntries(const std::string& filter) {
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        const std::size_t bar = filter.find('|', start);
        parts.push_back(filter.substr(start, bar - start));
        if (bar == std::string::npos) {
            break;
        }
        start = bar + 1;
    }
    std::vector<std::string> entries;
    for (std::size_t i = 0; i + 1 < parts.size(); i += 2) {
        entries.push_back(parts[i]);
    }
    return entries;
}

QLineEdit* MakeValueBox(const char* name, QGroupBox* frame) {
    auto* box = new QLineEdit(frame);
    box->setObjectName(QString::fromLatin1(name));
    box->setAlignment(Qt::AlignRight);
    // Hidden boxes keep their place, so the frames do not jump when the shape changes.
    QSizePolicy policy = box->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    box->setSizePolicy(policy);
    auto* layout = new QHBoxLayout(frame);
    layout->setContentsMargins(8, 2, 8, 6);
    layout->addWidget(box);
    return box;
}

QFrame* MakeSeparator(QWidget* parent) {
    auto* line = new QFrame(parent);
    line->setFrameShape(QFrame::HLine);
    line->setFrameShadow(QFrame::Sunken);
    return line;
}

} // namespace

std::optional<std::string> SystemLayerChooser(const std::string& title,
                                              const std::vector<std::string>& layers) {
    QStringList items;
    for (const std::string& layer : layers) {
        items << QString::fromStdString(layer);
    }
    bool chosen = false;
    const QString item =
        QInputDialog::getItem(QApplication::activeModalWidget(), QString::fromStdString(title),
                              QString(), items, 0, false, &chosen);
    return chosen ? std::optional<std::string>(item.toStdString()) : std::nullopt;
}

std::optional<std::string> SystemFileChooser(const std::string& title,
                                             const std::vector<std::string>& filters) {
    QFileDialog dialog(QApplication::activeModalWidget(), QString::fromStdString(title));
    QStringList names;
    for (const std::string& filter : filters) {
        names << QString::fromStdString(filter);
    }
    dialog.setNameFilters(names);
    dialog.setFileMode(QFileDialog::ExistingFile);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    if (!names.isEmpty()) {
        dialog.selectNameFilter(names.front());
    }
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return std::nullopt;
    }
    return dialog.selectedFiles().front().toStdString();
}

frm_back::frm_back(DialogContext& context, QWidget* parent)
    : QDialog(parent), m_context(context), m_form(*this) {
    setObjectName(QString::fromLatin1(kFormName));
    SetTag(*this, "119");
    setWindowTitle(QStringLiteral("Définition d'un critère de classification souple"));
    setFont(FormFont());
    m_reader = std::make_unique<FieldValuesReader>();
    // Typing redraws the preview once the keystrokes waiting in the queue are handled.
    m_previewTimer = new QTimer(this);
    m_previewTimer->setSingleShot(true);
    m_previewTimer->setInterval(0);
    connect(m_previewTimer, &QTimer::timeout, this, [this] { RefreshPreview(); });
    BuildControls();
    LayOut();
    m_languages = std::make_unique<QtListControl>(*listlang1);
    m_languages->SetClickHandler([this] { listlang1_Click(); });
    m_shapes = std::make_unique<QtListControl>(*Lst_shapes);
    m_fields = std::make_unique<QtListControl>(*Lst_fields);
}

frm_back::~frm_back() = default;

void frm_back::BuildControls() {
    const auto named = [](QWidget* widget, const char* name, const char* tag = nullptr) {
        widget->setObjectName(QString::fromLatin1(name));
        if (tag != nullptr) {
            SetTag(*widget, tag);
        }
    };
    const auto button = [this, &named](const char* caption, const char* name, const char* tag) {
        auto* result = new QPushButton(QString::fromUtf8(caption), this);
        named(result, name, tag);
        // Enter in a box must never press a button: the run changes the user's table.
        result->setAutoDefault(false);
        result->setDefault(false);
        return result;
    };

    listlang1 = new QListWidget(this);
    named(listlang1, "listlang1");
    listlang1->setToolTip(QStringLiteral("fr / en"));

    Label1 = new QLabel(QStringLiteral("Shape contenant les données"), this);
    named(Label1, "Label1", "120");
    Lst_shapes = new QListWidget(this);
    named(Lst_shapes, "Lst_shapes");
    Label1->setBuddy(Lst_shapes);
    cmd_open_shape = button("Ajouter shape", "cmd_open_shape", "123");

    Label2 = new QLabel(QStringLiteral("Attributs disponibles"), this);
    named(Label2, "Label2", "121");
    Lst_fields = new QListWidget(this);
    named(Lst_fields, "Lst_fields");
    Label2->setBuddy(Lst_fields);
    cmdStats = button("Stats", "cmdStats", "125");
    sum_table = button("Méta données", "sum_table", "124");

    for (int k = 1; k <= 5; ++k) {
        auto* face = new QToolButton(this);
        named(face, ("cmd_nf_" + std::to_string(k)).c_str());
        face->setIconSize(QSize(kButtonFaceSize, kButtonFaceSize));
        face->setFixedSize(kButtonFaceSize + 8, kButtonFaceSize + 8);
        face->setMouseTracking(true);
        // Shows which shape was clicked last; only SelectKind changes it.
        face->setCheckable(true);
        face->setAutoExclusive(true);
        face->installEventFilter(this);
        connect(face, &QToolButton::clicked, this, [this, k] { SelectKind(k); });
        cmd_nf[static_cast<std::size_t>(k - 1)] = face;
    }

    Picture1 = new QLabel(this);
    named(Picture1, "Picture1");
    Picture1->setFixedSize(kDiagramWidth + 2, kDiagramHeight + 2);
    Picture1->setFrameShape(QFrame::Box);
    Picture1->setStyleSheet(QStringLiteral("QLabel#Picture1 { background: white; border: 1px "
                                           "solid #a0a0a0; }"));
    Picture1->setAlignment(Qt::AlignCenter);

    frame3 = new QGroupBox(QStringLiteral("a :"), this);
    named(frame3, "frame3");
    Frame5 = new QGroupBox(QStringLiteral("b :"), this);
    named(Frame5, "Frame5");
    Frame6 = new QGroupBox(QStringLiteral("c :"), this);
    named(Frame6, "Frame6");
    Frame7 = new QGroupBox(QStringLiteral("d :"), this);
    named(Frame7, "Frame7");
    Txt_val_a = MakeValueBox("Txt_val_a", frame3);
    Txt_val_b = MakeValueBox("Txt_val_b", Frame5);
    Txt_val_c = MakeValueBox("Txt_val_c", Frame6);
    Txt_val_d = MakeValueBox("Txt_val_d", Frame7);

    Pic_preview = new PreviewView(this);
    named(Pic_preview, "Pic_preview");
    cmd_suggest = button("Suggérer", "cmd_suggest", "260");
    cmd_suggest->setEnabled(false);

    Txt_explique = new QPlainTextEdit(this);
    named(Txt_explique, "Txt_explique");
    Txt_explique->setReadOnly(true);
    Txt_explique->setFocusPolicy(Qt::ClickFocus);
    Txt_explique->setLineWrapMode(QPlainTextEdit::WidgetWidth);

    Label3 = new QLabel(QStringLiteral("Alias de l'attribut en sortie"), this);
    named(Label3, "Label3", "122");
    Txt_new_name = new QLineEdit(this);
    named(Txt_new_name, "Txt_new_name");
    Label3->setBuddy(Txt_new_name);

    cmd_go = button("Calculer", "cmd_go", "127");
    cmd_sortie = button("Sortir", "cmd_sortie", "118");

    Lst_shapes->viewport()->installEventFilter(this);
    Lst_fields->viewport()->installEventFilter(this);
    connect(cmd_open_shape, &QPushButton::clicked, this, [this] { cmd_open_shape_Click(); });
    connect(cmdStats, &QPushButton::clicked, this, [this] { cmdStats_Click(); });
    connect(sum_table, &QPushButton::clicked, this, [this] { sum_table_Click(); });
    connect(cmd_go, &QPushButton::clicked, this, [this] { cmd_go_Click(); });
    connect(cmd_sortie, &QPushButton::clicked, this, [this] { cmd_sortie_Click(); });
    connect(cmd_suggest, &QPushButton::clicked, this, [this] { cmd_suggest_Click(); });
    // The preview follows the field the run would read, however it was selected.
    connect(Lst_fields, &QListWidget::itemSelectionChanged, this,
            [this] { RefreshPreviewField(); });
    for (QLineEdit* box : {Txt_val_a, Txt_val_b, Txt_val_c, Txt_val_d}) {
        connect(box, &QLineEdit::textChanged, m_previewTimer, qOverload<>(&QTimer::start));
    }
}

void frm_back::LayOut() {
    // Data: the layers, the fields and the language list side by side.
    auto* dataGrid = new QGridLayout;
    dataGrid->setHorizontalSpacing(12);
    dataGrid->addWidget(Label1, 0, 0);
    dataGrid->addWidget(Lst_shapes, 1, 0);
    auto* shapeButtons = new QHBoxLayout;
    shapeButtons->addWidget(cmd_open_shape);
    shapeButtons->addStretch();
    dataGrid->addLayout(shapeButtons, 2, 0);
    dataGrid->addWidget(Label2, 0, 1);
    dataGrid->addWidget(Lst_fields, 1, 1);
    auto* fieldButtons = new QHBoxLayout;
    fieldButtons->setSpacing(6);
    fieldButtons->addWidget(cmdStats);
    fieldButtons->addWidget(sum_table);
    fieldButtons->addStretch();
    dataGrid->addLayout(fieldButtons, 2, 1);
    dataGrid->addWidget(listlang1, 1, 2, Qt::AlignTop);
    dataGrid->setColumnStretch(0, 1);
    dataGrid->setColumnStretch(1, 1);
    dataGrid->setRowStretch(1, 1);
    listlang1->setFixedWidth(52);
    listlang1->setMaximumHeight(64);
    Lst_shapes->setMinimumHeight(110);
    Lst_fields->setMinimumHeight(110);

    // Shape: the five faces above the diagram, the parameters beside it.
    auto* faces = new QHBoxLayout;
    faces->setSpacing(6);
    for (QToolButton* face : cmd_nf) {
        faces->addWidget(face);
    }
    faces->addStretch();

    auto* parameters = new QVBoxLayout;
    parameters->setSpacing(4);
    for (QGroupBox* frame : {frame3, Frame5, Frame6, Frame7}) {
        frame->setFixedWidth(120);
        parameters->addWidget(frame);
    }
    cmd_suggest->setFixedWidth(120);
    parameters->addWidget(cmd_suggest);
    parameters->addStretch();

    // The faces and the explanation above; the shape's diagram, the boxes and the live preview
    // of the typed values below.
    auto* shape = new QGridLayout;
    shape->setHorizontalSpacing(12);
    shape->addLayout(faces, 0, 0, 1, 2);
    shape->addWidget(Txt_explique, 0, 2);
    shape->addWidget(Picture1, 1, 0, Qt::AlignTop);
    shape->addLayout(parameters, 1, 1);
    shape->addWidget(Pic_preview, 1, 2);
    shape->setColumnStretch(2, 1);
    Txt_explique->setMinimumWidth(150);
    Txt_explique->setFixedHeight(kButtonFaceSize + 8);

    // Output and actions.
    auto* output = new QHBoxLayout;
    output->addWidget(Label3);
    output->addWidget(Txt_new_name, 1);
    output->addSpacing(24);
    output->addWidget(cmd_go);
    output->addWidget(cmd_sortie);
    Txt_new_name->setMinimumWidth(140);
    Txt_new_name->setMaxLength(64);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 12, 12, 12);
    layout->setSpacing(10);
    layout->addLayout(dataGrid, 1);
    layout->addWidget(MakeSeparator(this));
    layout->addLayout(shape);
    layout->addWidget(MakeSeparator(this));
    layout->addLayout(output);

    // Keyboard order: data, shape, parameters, output, actions, then the language.
    QWidget* order[] = {Lst_shapes,   cmd_open_shape, Lst_fields, cmdStats,  sum_table,
                        cmd_nf[0],    cmd_nf[1],      cmd_nf[2],  cmd_nf[3], cmd_nf[4],
                        Txt_val_a,    Txt_val_b,      Txt_val_c,  Txt_val_d, cmd_suggest,
                        Txt_new_name, cmd_go,         cmd_sortie, listlang1};
    for (std::size_t i = 0; i + 1 < std::size(order); ++i) {
        setTabOrder(order[i], order[i + 1]);
    }
    for (QToolButton* face : cmd_nf) {
        face->setFocusPolicy(Qt::StrongFocus);
    }
    setSizeGripEnabled(true);
}

lang::clsResourceMDB* frm_back::Resource() const {
    return m_context.module1.gResource();
}

std::string frm_back::Text(std::int16_t id) const {
    const lang::clsResourceMDB* resource = Resource();
    return resource == nullptr ? std::string() : resource->ResourceString(id);
}

void frm_back::ShowLocalError(const std::exception& error, const std::string& label,
                              const std::optional<int>& marker, const std::string& after) {
    const Error own = ToError(error, kFormName);
    m_context.ui.MessageBox(std::to_string(own.Number()) + "  " + own.Description() + label +
                                MarkerText(marker) + after,
                            util::MessageIcon::None);
}

void frm_back::PrefixMainButtons() {
    cmd_sortie->setText(QStringLiteral(" ") + cmd_sortie->text());
    cmd_go->setText(QStringLiteral(" ") + cmd_go->text());
}

void frm_back::Form_Load() {
    std::optional<int> marker;
    try {
        m_context.module1.InitLanguage();
        lang::InitLanguageList(*this, Resource());
        if (lang::clsResourceMDB* resource = Resource()) {
            resource->LoadFormLanguageText(m_form, false);
        }
        PrefixMainButtons();
        for (int k = 1; k <= 5; ++k) {
            cmd_nf[static_cast<std::size_t>(k - 1)]->setIcon(QIcon(LoadResPicture(100 + k)));
        }
        // The shape remembered from the last showing, pressed and shown as its button shows it.
        if (criterion::IsShapeKind(m_context.state.kind)) {
            SelectKind(m_context.state.kind);
        }
        FillCandidateLayers(marker);
    } catch (const std::exception& error) {
        ShowLocalError(error, "Debug=", marker, " dans form_load");
    }
    LabelSuggest();
    RefreshPreview();
}

void frm_back::FillCandidateLayers(std::optional<int>& marker) {
    host::IApplication& app = RequireApp(m_context.state, "Form_Load");
    const std::shared_ptr<host::IMap> map = app.Document()->FocusMap();
    marker = 3;
    std::unique_ptr<host::IEnumLayer> layers =
        map->Layers(host::UID{host::kFeatureLayerInterfaceId}, false);
    marker = 4;
    layers->Reset();
    std::shared_ptr<host::ILayer> layer = layers->Next();
    marker = 5;
    while (layer) {
        const auto featureLayer = std::dynamic_pointer_cast<host::IFeatureLayer>(layer);
        if (featureLayer && featureLayer->Selectable()) {
            marker = 6;
            const std::string name = layer->Name();
            const std::int32_t shapeType = featureLayer->FeatureClass()->ShapeType();
            marker = 7;
            if (shapeType == host::kGeometryPolygon) {
                marker = 71;
                const std::string path = featureLayer->FeatureClass()->Workspace()->PathName();
                if (path.size() < 4 || path.compare(path.size() - 4, 4, ".mdb") != 0) {
                    m_shapes->AddItem(name);
                }
            }
        }
        marker = 8;
        layer = layers->Next();
    }
}

void frm_back::choose_shapefile() {
    const std::optional<std::string> chosen =
        m_context.chooseFile(kOpenTitle, FilterEntries(kOpenFilter));
    if (!chosen || chosen->empty()) {
        m_context.state.g_shape_folder.clear();
        m_context.state.g_shape_name.clear();
        return;
    }
    // A GeoPackage: the file, and the table the user picks when it has several.
    if (host::gpkg::IsGeoPackagePath(*chosen)) {
        const auto layers = host::gpkg::LayerNames(*chosen);
        const std::optional<std::string> layer = layers.size() == 1
                                                     ? std::optional<std::string>(layers.front())
                                                     : m_context.chooseLayer(kOpenTitle, layers);
        m_context.state.g_shape_folder = layer ? *chosen : std::string();
        m_context.state.g_shape_name = layer.value_or("");
        return;
    }
    // The last four characters go whatever they are: ".shp" in the normal case.
    if (chosen->size() < 4) {
        throw Error(error_number::kInvalidArgument, "choose_shapefile",
                    "Invalid procedure call or argument");
    }
    const std::string rest = chosen->substr(0, chosen->size() - 4);
    const std::size_t separator = rest.find_last_of("/\\");
    if (separator == std::string::npos) {
        throw Error(error_number::kInvalidArgument, "choose_shapefile",
                    "Invalid procedure call or argument");
    }
    m_context.state.g_shape_folder = rest.substr(0, separator);
    m_context.state.g_shape_name = rest.substr(separator + 1);
}

void frm_back::cmd_open_shape_Click() {
    std::optional<int> marker;
    try {
        choose_shapefile();
        ComponentState& state = m_context.state;
        if (state.g_shape_name.empty()) {
            return;
        }
        m_shapes->AddItem(state.g_shape_name);
        host::IApplication& app = RequireApp(state, "cmd_open_shape_Click");
        const auto workspace =
            host::gpkg::IsGeoPackagePath(state.g_shape_folder)
                ? host::gpkg::GeoPackageWorkspaceFactory().OpenFromFile(state.g_shape_folder, 0)
                : app.Factory().NewShapefileWorkspaceFactory()->OpenFromFile(state.g_shape_folder,
                                                                             0);
        const auto featureClass = workspace->OpenFeatureClass(state.g_shape_name);
        const auto layer = app.Factory().NewFeatureLayer();
        layer->SetFeatureClass(featureClass);
        m_fields->Clear();
        Txt_new_name->clear();
        marker = 1;
        const auto fields = featureClass->Fields();
        for (std::int32_t i = 0; i < fields->FieldCount(); ++i) {
            const auto field = fields->Field(i);
            if (IsNumericField(*field)) {
                m_fields->AddItem(field->AliasName());
            }
        }
        marker = 2;
        const auto map = app.Document()->FocusMap();
        marker = 3;
        layer->SetName(featureClass->AliasName());
        map->AddLayer(layer);
    } catch (const std::exception& error) {
        m_context.log.ReportError(ToError(error, "cmd_open_shape_Click"), kFormName,
                                  "cmd_open_shape_Click", true, 0, "Debug=" + MarkerText(marker),
                                  true);
    }
}

void frm_back::Lst_shapes_MouseUp() {
    std::optional<int> marker;
    try {
        ComponentState& state = m_context.state;
        host::IApplication& app = RequireApp(state, "Lst_shapes_MouseUp");
        const auto document = app.Document();
        marker = 1;
        const auto map = document->FocusMap();
        marker = 2;
        if (m_shapes->ListIndex() == -1) {
            return;
        }
        marker = 3;
        const std::int32_t count = map->LayerCount();
        for (std::int32_t i = 0; i < count; ++i) {
            marker = 4;
            if (m_shapes->Text() != map->Layer(i)->Name()) {
                continue;
            }
            marker = 5;
            const auto layer = map->Layer(i);
            marker = 6;
            const auto featureLayer = std::dynamic_pointer_cast<host::IFeatureLayer>(layer);
            if (!featureLayer) {
                throw Error(error_number::kTypeMismatch, "Lst_shapes_MouseUp", "Type mismatch");
            }
            marker = 7;
            const auto featureClass = featureLayer->FeatureClass();
            marker = 71;
            state.g_layer_path = featureClass->Workspace()->PathName();
            state.g_layer_name = layer->Name();
            state.g_layer_index = i;
            m_fields->Clear();
            Txt_new_name->clear();
            marker = 9;
            const auto fields = featureClass->Fields();
            for (std::int32_t f = 0; f < fields->FieldCount(); ++f) {
                marker = 10;
                const auto field = fields->Field(f);
                if (IsNumericField(*field)) {
                    m_fields->AddItem(field->Name());
                }
            }
        }
    } catch (const std::exception& error) {
        ShowLocalError(error, "Debug=", marker);
    }
}

void frm_back::Lst_fields_MouseUp() {
    if (m_fields->ListIndex() != -1) {
        Txt_new_name->setText(QString::fromUtf8(criterion::kProposedNamePrefix) +
                              QString::fromStdString(m_fields->Text()));
    }
    const std::string proposed = Txt_new_name->text().toStdString();
    for (int i = 0; i < m_fields->ListCount(); ++i) {
        if (proposed == m_fields->List(i)) {
            m_context.ui.MessageBox(Text(157), util::MessageIcon::None, Text(158));
        }
    }
    for (QLineEdit* box : {Txt_val_a, Txt_val_b, Txt_val_c, Txt_val_d}) {
        box->clear();
    }
}

void frm_back::SelectKind(int kind) {
    const criterion::KindInfo& info = criterion::InfoOfKind(kind);
    Picture1->setPixmap(LoadResPicture(info.diagramBitmap));
    cmd_nf[static_cast<std::size_t>(kind - 1)]->setChecked(true);
    const std::array<QLineEdit*, 4> boxes = {Txt_val_a, Txt_val_b, Txt_val_c, Txt_val_d};
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        boxes[i]->setEnabled(info.boxes[i]);
        boxes[i]->setVisible(info.boxes[i]);
    }
    m_context.state.kind = static_cast<std::int16_t>(kind);
    m_previewTimer->start();
}

void frm_back::ShowKindExplanation(int kind) {
    const criterion::KindInfo& info = criterion::InfoOfKind(kind);
    Txt_explique->setPlainText(QString::fromStdString(Text(info.explanationText)));
}

void frm_back::cmd_go_Click() {
    m_context.fzy.SetApplication(m_context.state.g_app);
    const CurrentTexts texts(m_context.module1);
    criterion::CriterionRun run(m_context.state, *this, m_context.ui, texts, m_context.fzy,
                                m_context.log);
    // The run changes the table the preview may be reading: the reading stops first and, if
    // the same field is still selected after the run, starts again.
    const bool reading = m_reader->Busy();
    m_reader->Stop();
    if (reading) {
        m_previewKey.clear();
    }
    run.RunCriterion();
    RefreshPreviewField();
}

std::string frm_back::ParameterText(int box) const {
    const std::array<const QLineEdit*, 4> boxes = {Txt_val_a, Txt_val_b, Txt_val_c, Txt_val_d};
    return boxes.at(static_cast<std::size_t>(box))->text().toStdString();
}

std::string frm_back::NewNameText() const {
    return Txt_new_name->text().toStdString();
}

void frm_back::cmdStats_Click() {
    int marker = 0;
    bool markerSet = false;
    try {
        const std::optional<std::string> field =
            m_fields->ListIndex() == -1 ? std::nullopt : std::optional(m_fields->Text());
        const CurrentTexts texts(m_context.module1);
        int stepMarker = -1;
        std::optional<criterion::FieldStatistics> result;
        try {
            result = criterion::ComputeFieldStatistics(m_context.state.g_app.get(),
                                                       m_shapes->Text(), field, texts,
                                                       util::DecimalSeparator(), stepMarker);
        } catch (...) {
            markerSet = stepMarker >= 0;
            marker = stepMarker;
            throw;
        }
        if (!result) {
            return;
        }
        // Shown without an owner, as a window of its own.
        Statistiques window;
        window.Form_Load(Resource());
        window.Fill(result->lines, result->summary);
        window.setWindowModality(Qt::ApplicationModal);
        window.exec();
    } catch (const std::exception& error) {
        m_context.log.ReportError(
            ToError(error, "cmdStats_Click"), kFormName, "cmdStats_Click", true, 0,
            "Debug=" + (markerSet ? std::to_string(marker) : std::string()), true);
    }
}

namespace {

// The chosen layer's records when its source keeps them in its own data (a database); a
// layer that cannot be taken has none.
std::shared_ptr<host::ICriterionRecords> ChosenLayerRecords(const ComponentState& state,
                                                            std::string& database) {
    try {
        const auto document = state.g_app ? state.g_app->Document() : nullptr;
        const auto map = document ? document->FocusMap() : nullptr;
        if (!map || state.g_layer_name.empty() || state.g_layer_index < 0 ||
            state.g_layer_index >= map->LayerCount()) {
            return nullptr;
        }
        const auto layer =
            std::dynamic_pointer_cast<host::IFeatureLayer>(map->Layer(state.g_layer_index));
        const auto featureClass = layer ? layer->FeatureClass() : nullptr;
        auto records = std::dynamic_pointer_cast<host::ICriterionRecords>(featureClass);
        if (records) {
            database = featureClass->Workspace()->PathName();
        }
        return records;
    } catch (const std::exception&) {
        return nullptr;
    }
}

} // namespace

void frm_back::sum_table_Click() {
    std::optional<int> marker;
    try {
        fzy::IO_fzyext& fzy = m_context.fzy;
        ComponentState& state = m_context.state;
        fzy.SetApplication(state.g_app);
        marker = 1;
        std::string database;
        if (const auto records = ChosenLayerRecords(state, database)) {
            // Shown as the metadata file's number entry is.
            const std::string fieldName = m_fields->List(m_fields->ListIndex());
            marker = 3;
            const CurrentTexts texts(m_context.module1);
            const auto record = records->Record(fieldName);
            const auto aggregation =
                record
                    ? std::nullopt
                    : fzy::DescribeAggregationOf(records->AggregationRecords(), fieldName, texts);
            fzy.SetInfoText(record ? fzy::FormatNumberDescription(texts, util::DecimalSeparator(),
                                                                  *record, database)
                                   : aggregation.value_or(Text(153)));
            fzy.fzy_io_showinfo();
            return;
        }
        // Only read: no layer chosen, or no metadata file yet, is nothing recorded.
        const bool recorded = !state.g_layer_name.empty() &&
                              fzy.fzy_io_openread(state.g_layer_path, state.g_layer_name);
        marker = 2;
        const std::string fieldName = m_fields->List(m_fields->ListIndex());
        marker = 3;
        const bool found1 = recorded && fzy.fzy_io_numberinfo(fieldName);
        marker = 4;
        const bool found2 = recorded && fzy.fzy_io_recordinfo(fieldName, "");
        marker = 5;
        if (!found1 && !found2) {
            // An aggregated field is recorded beside the metadata file, in its JSON companion.
            marker = 6;
            const auto aggregation =
                state.g_layer_name.empty()
                    ? std::nullopt
                    : fzy::DescribeAggregationOf(
                          fzy::AggregationSidecar(state.g_layer_path, state.g_layer_name).Records(),
                          fieldName, CurrentTexts(m_context.module1));
            fzy.SetInfoText(aggregation.value_or(Text(153)));
        }
        fzy.fzy_io_showinfo();
        if (recorded) {
            fzy.fzy_io_close();
        }
    } catch (const std::exception& error) {
        ShowLocalError(error, " Sum_table Debug=", marker);
    }
}

void frm_back::listlang1_Click() {
    lang::listlang1_Click(*this, Resource(), m_context.log);
    LabelSuggest();
    RefreshPreview();
}

void frm_back::LabelSuggest() {
    const CurrentTexts texts(m_context.module1);
    // The texts of an older database have no caption for it.
    if (cmd_suggest->text().isEmpty()) {
        cmd_suggest->setText(
            QString::fromStdString(criterion::PreviewText(texts, criterion::kTextSuggest)));
    }
    cmd_suggest->setToolTip(
        QString::fromStdString(criterion::PreviewText(texts, criterion::kTextSuggestTip)));
}

void frm_back::RefreshPreviewField() {
    const ComponentState& state = m_context.state;
    const bool chosen = m_fields->ListIndex() != -1 && !state.g_layer_name.empty();
    const std::string field = chosen ? m_fields->Text() : std::string();
    const std::string key =
        chosen ? std::to_string(state.g_layer_index) + "/" + state.g_layer_name + "/" + field
               : std::string();
    if (key == m_previewKey) {
        return;
    }
    m_reader->Stop();
    m_previewKey = key;
    m_previewFieldName = field;
    m_previewData.reset();
    m_previewFailure.reset();
    if (chosen) {
        // The layer the run would use, with the field the run would read.
        try {
            host::IApplication& app = RequireApp(state, "RefreshPreviewField");
            const auto layer = std::dynamic_pointer_cast<host::IFeatureLayer>(
                app.Document()->FocusMap()->Layer(state.g_layer_index));
            if (!layer) {
                throw Error(error_number::kTypeMismatch, "RefreshPreviewField", "Type mismatch");
            }
            m_reader->Start(
                layer->Search(false), field,
                [this](std::shared_ptr<const FieldPreviewData> loaded, const std::string& error) {
                    m_previewData = std::move(loaded);
                    if (!m_previewData) {
                        m_previewFailure = error;
                    }
                    RefreshPreview();
                });
        } catch (const std::exception& error) {
            m_previewFailure = error.what();
        }
    }
    RefreshPreview();
}

bool frm_back::PreviewReading() const {
    return m_reader->Busy();
}

void frm_back::RefreshPreview() {
    m_previewTimer->stop();
    const CurrentTexts texts(m_context.module1);
    const int kind = m_context.state.kind;
    const std::array<std::string, 4> boxes = {ParameterText(0), ParameterText(1), ParameterText(2),
                                              ParameterText(3)};
    const criterion::PreviewCriterion criterion = criterion::ReadPreviewCriterion(kind, boxes);
    std::optional<std::string> message;
    if (m_previewFailure) {
        message = criterion::FillPlaceholders(
            criterion::PreviewText(texts, criterion::kTextFieldUnreadable), {*m_previewFailure});
    } else if (m_reader->Busy()) {
        message = criterion::PreviewText(texts, criterion::kTextReadingValues);
    }
    const FieldPreviewData* fieldData = m_previewData.get();
    criterion::PreviewFigure figure = criterion::MakePreviewFigure(
        m_previewFieldName, fieldData != nullptr ? &fieldData->values : nullptr,
        fieldData != nullptr ? &fieldData->histogram : nullptr, criterion, texts,
        util::DecimalSeparator(), message);
    figure.statusIsProblem = figure.statusIsProblem || m_previewFailure.has_value();
    Pic_preview->SetFigure(std::move(figure));
    cmd_suggest->setEnabled(fieldData != nullptr && !fieldData->values.values.empty() &&
                            criterion::IsShapeKind(kind));
}

void frm_back::cmd_suggest_Click() {
    if (!m_previewData) {
        return;
    }
    const auto suggested =
        criterion::SuggestParameters(m_context.state.kind, m_previewData->values);
    if (!suggested) {
        return;
    }
    const std::array<QLineEdit*, 4> boxes = {Txt_val_a, Txt_val_b, Txt_val_c, Txt_val_d};
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        if ((*suggested)[i]) {
            boxes[i]->setText(QString::fromStdString(
                util::FormatNumber(*(*suggested)[i], util::DecimalSeparator())));
        }
    }
}

void frm_back::cmd_sortie_Click() {
    close();
}

bool frm_back::eventFilter(QObject* watched, QEvent* event) {
    // The lists react to the release of any mouse button, never to the keyboard.
    if (event->type() == QEvent::MouseButtonRelease) {
        if (watched == Lst_shapes->viewport()) {
            Lst_shapes_MouseUp();
        } else if (watched == Lst_fields->viewport()) {
            Lst_fields_MouseUp();
        }
    }
    if (event->type() == QEvent::MouseMove || event->type() == QEvent::Enter) {
        for (std::size_t k = 0; k < cmd_nf.size(); ++k) {
            if (watched == cmd_nf[k]) {
                ShowKindExplanation(static_cast<int>(k) + 1);
            }
        }
    }
    return QDialog::eventFilter(watched, event);
}

void Mainprog(DialogContext& context) {
    frm_back dialog(context);
    dialog.Form_Load();
    dialog.setWindowModality(Qt::ApplicationModal);
    dialog.exec();
}

} // namespace quorel::dialog
