#include "dialog/CombinationForm.h"

#include "dialog/QtLabelledForm.h"
#include "fzy/AggregationRecords.h"
#include "fzy/FzyFormat.h"
#include "fzy/IO_fzyext.h"
#include "host/api/LayerWalk.h"
#include "util/FileFunctions.h"
#include "util/StringFunctions.h"
#include "util/TextSource.h"

#include <QComboBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPainter>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <algorithm>
#include <array>
#include <cmath>
#include <fstream>
#include <iterator>

namespace quorel::dialog {
namespace {

QString Q(const std::string& text) {
    return QString::fromStdString(text);
}

// The list item's role that tells a recorded field.
constexpr int kRecordedRole = Qt::UserRole + 1;
constexpr int kPictureSize = 132;

// The names a shapefile's metadata file describes, as stored: live criterion and record entries.
std::vector<std::string> MetadataFileNames(const std::string& path) {
    std::vector<std::string> names;
    std::ifstream in(path, std::ios::binary);
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    if (static_cast<std::int64_t>(bytes.size()) < fzy::kSmallestOldFile) {
        return names;
    }
    try {
        const fzy::MemorySource source(bytes);
        fzy::ByteReader counts(source, 2);
        const std::int16_t recordCount = counts.ReadInt16();
        const std::int16_t numberCount = counts.ReadInt16();
        const std::int16_t total = fzy::EntriesToWalk(recordCount, numberCount);
        std::int64_t position = fzy::kHeaderSize;
        for (std::int16_t i = 0; i < total; ++i) {
            fzy::ByteReader reader(source, position);
            const fzy::FzyEntryFrame frame = fzy::ReadFrame(reader);
            if (frame.EntryKind == fzy::kNumberEntryKind ||
                frame.EntryKind == fzy::kRecordEntryKind) {
                names.push_back(reader.ReadText());
            }
            position += frame.Length;
        }
    } catch (const std::exception&) {
        // A damaged file describes what was read before the damage; the run reports the rest.
    }
    return names;
}

// Whether a record describes the field: in the source's own records, or beside a shapefile in
// its metadata file and its aggregation records.
class RecordedNames {
public:
    explicit RecordedNames(host::IFeatureLayer& layer) {
        const auto featureClass = layer.FeatureClass();
        if (const auto* records =
                dynamic_cast<const host::ICriterionRecords*>(featureClass.get())) {
            for (const auto& record : records->Records()) {
                m_exact.push_back(record.column);
            }
            for (const auto& record : records->AggregationRecords()) {
                m_exact.push_back(record.field);
            }
            return;
        }
        const auto workspace = featureClass->Workspace();
        if (!workspace) {
            return;
        }
        const std::string folder = workspace->PathName();
        const std::string name = featureClass->AliasName();
        m_stored = MetadataFileNames(fzy::MetadataFilePath(folder, name));
        try {
            for (const auto& record : fzy::AggregationSidecar(folder, name).Records()) {
                m_exact.push_back(record.field);
            }
        } catch (const std::exception&) {
            // A damaged sidecar marks nothing here; the run that writes it says why.
        }
    }

    bool Holds(const std::string& field) const {
        return std::find(m_exact.begin(), m_exact.end(), field) != m_exact.end() ||
               std::any_of(m_stored.begin(), m_stored.end(), [&](const std::string& stored) {
                   return fzy::SameStoredName(field, stored);
               });
    }

private:
    std::vector<std::string> m_exact;
    std::vector<std::string> m_stored;
};

bool IsCombinableType(std::int32_t type) {
    return type >= host::kFieldTypeSmallInteger && type <= host::kFieldTypeDouble;
}

std::optional<double> ParseNumber(const QString& text) {
    const std::string typed = text.trimmed().toStdString();
    if (auto value = util::ParseDecimal(typed, '.')) {
        return value;
    }
    return util::ParseDecimal(typed, ',');
}

// The operators as the list shows them: the record's name and its definition.
const std::array<const char*, 7> kOperatorFormulas = {"min(μi)",
                                                      "max(μi)",
                                                      "Π μi",
                                                      "1 − Π (1 − μi)",
                                                      "sum^γ × product^(1−γ)",
                                                      "Σ wi μi / Σ wi",
                                                      "Σ wk μ(k), μ(1) ≥ μ(2) ≥ …"};

} // namespace

std::vector<CombinableField> CombinableFields(host::IFeatureLayer& layer, bool unrecordedInRange) {
    const auto featureClass = layer.FeatureClass();
    if (!featureClass) {
        return {};
    }
    const RecordedNames recorded(layer);
    const auto fields = featureClass->Fields();
    std::vector<CombinableField> marked;
    std::vector<std::string> others;
    std::vector<std::int32_t> otherIndexes;
    for (std::int32_t i = 0; i < fields->FieldCount(); ++i) {
        const auto field = fields->Field(i);
        if (!IsCombinableType(field->Type())) {
            continue;
        }
        if (recorded.Holds(field->Name())) {
            marked.push_back({field->Name(), true});
        } else if (unrecordedInRange) {
            others.push_back(field->Name());
            otherIndexes.push_back(i);
        }
    }
    if (!others.empty()) {
        // One walk over the features tells which of the others stay within [0, 1].
        std::vector<bool> inRange(others.size(), true);
        const auto cursor = featureClass->Search(true);
        const auto cursorFields = cursor->Fields();
        std::vector<std::int32_t> columns;
        for (const auto& name : others) {
            columns.push_back(cursorFields->FindField(name));
        }
        while (const auto row = cursor->NextRow()) {
            for (std::size_t k = 0; k < columns.size(); ++k) {
                if (!inRange[k]) {
                    continue;
                }
                const host::Value value = row->GetValue(columns[k]);
                if (const auto* number = std::get_if<double>(&value)) {
                    inRange[k] = *number >= 0 && *number <= 1;
                }
            }
        }
        for (std::size_t k = 0; k < others.size(); ++k) {
            if (inRange[k]) {
                marked.push_back({others[k], false});
            }
        }
    }
    return marked;
}

QImage OperatorPicture(const criterion::Aggregation& aggregation, int size,
                       std::optional<double> alpha) {
    criterion::Aggregation two = aggregation;
    if (criterion::TakesWeights(two.op) &&
        (two.weights.size() != 2 || two.weights[0] <= 0 || two.weights[1] <= 0)) {
        two.weights = {1, 1};
    }
    if (!criterion::TakesWeights(two.op)) {
        two.weights.clear();
    }
    two.gamma = std::clamp(two.gamma, 0.0, 1.0);
    const QColor low(255, 255, 204);
    const QColor high(0, 104, 55);
    QImage image(size, size, QImage::Format_RGB32);
    std::vector<double> degrees(static_cast<std::size_t>(size) * static_cast<std::size_t>(size));
    for (int py = 0; py < size; ++py) {
        for (int px = 0; px < size; ++px) {
            const std::array<std::optional<double>, 2> inputs = {(px + 0.5) / size,
                                                                 1 - (py + 0.5) / size};
            const double degree = criterion::Aggregate(two, inputs).value_or(0);
            degrees[static_cast<std::size_t>(py * size + px)] = degree;
            const auto mix = [degree](int a, int b) {
                return static_cast<int>(std::lround(a + (b - a) * std::clamp(degree, 0.0, 1.0)));
            };
            image.setPixel(px, py,
                           qRgb(mix(low.red(), high.red()), mix(low.green(), high.green()),
                                mix(low.blue(), high.blue())));
        }
    }
    if (alpha) {
        // The border of the region that satisfies the threshold.
        const auto at = [&](int x, int y) {
            return degrees[static_cast<std::size_t>(y * size + x)] >= *alpha;
        };
        for (int py = 0; py < size; ++py) {
            for (int px = 0; px < size; ++px) {
                const bool inside = at(px, py);
                const bool edge = (px + 1 < size && at(px + 1, py) != inside) ||
                                  (py + 1 < size && at(px, py + 1) != inside);
                if (edge) {
                    image.setPixel(px, py, qRgb(200, 30, 30));
                }
            }
        }
    }
    QPainter painter(&image);
    painter.setPen(QColor(90, 90, 90));
    painter.drawRect(0, 0, size - 1, size - 1);
    return image;
}

CombinationForm::CombinationForm(criterion::ComponentState& state, const util::ITextSource& texts,
                                 bool unrecordedInRange, QWidget* parent)
    : QDialog(parent), m_state(state), m_texts(texts), m_unrecordedInRange(unrecordedInRange) {
    setFont(FormFont());
    const auto label = [this](std::int16_t id, const char* name) {
        auto* widget = new QLabel(Q(Text(id)), this);
        widget->setObjectName(QString::fromLatin1(name));
        return widget;
    };
    Label_layer = label(kTextLayer, "Label_layer");
    Cmb_layer = new QComboBox(this);
    Cmb_layer->setObjectName(QStringLiteral("Cmb_layer"));
    Label_layer->setBuddy(Cmb_layer);
    Label_inputs = label(unrecordedInRange ? kTextInputFields : kTextCriteria, "Label_inputs");
    Lst_inputs = new QListWidget(this);
    Lst_inputs->setObjectName(QStringLiteral("Lst_inputs"));
    Lst_inputs->setMinimumHeight(150);
    Label_inputs->setBuddy(Lst_inputs);
    Label_mark = label(kTextRecordedMark, "Label_mark");
    Label_mark->setWordWrap(true);
    Label_op = label(kTextOperator, "Label_op");
    Cmb_op = new QComboBox(this);
    Cmb_op->setObjectName(QStringLiteral("Cmb_op"));
    const auto& names = criterion::AggregationOperatorNames();
    for (std::size_t i = 0; i < names.size(); ++i) {
        Cmb_op->addItem(Q(names[i]) + QStringLiteral("   ") +
                            QString::fromUtf8(kOperatorFormulas[i]),
                        Q(names[i]));
    }
    Label_op->setBuddy(Cmb_op);
    Label_gamma = label(kTextGamma, "Label_gamma");
    Txt_gamma = new QLineEdit(QStringLiteral("0.5"), this);
    Txt_gamma->setObjectName(QStringLiteral("Txt_gamma"));
    Label_gamma->setBuddy(Txt_gamma);
    Label_weights = label(kTextWeights, "Label_weights");
    Label_weights->setWordWrap(true);
    Txt_weights = new QLineEdit(this);
    Txt_weights->setObjectName(QStringLiteral("Txt_weights"));
    Label_weights->setBuddy(Txt_weights);
    Pic_operator = new QLabel(this);
    Pic_operator->setObjectName(QStringLiteral("Pic_operator"));
    Pic_operator->setFixedSize(kPictureSize, kPictureSize);
    cmd_sortie = new QPushButton(Q(Text(kTextClose)), this);
    cmd_sortie->setObjectName(QStringLiteral("cmd_sortie"));
    cmd_sortie->setAutoDefault(false);

    m_grid = new QGridLayout;
    m_grid->addWidget(Label_layer, 0, 0);
    m_grid->addWidget(Cmb_layer, 0, 1, 1, 2);
    m_grid->addWidget(Label_inputs, 1, 0, Qt::AlignTop);
    m_grid->addWidget(Lst_inputs, 1, 1);
    m_grid->addWidget(Pic_operator, 1, 2, Qt::AlignTop | Qt::AlignHCenter);
    m_grid->addWidget(Label_mark, 2, 1, 1, 2);
    m_grid->addWidget(Label_op, 3, 0);
    m_grid->addWidget(Cmb_op, 3, 1, 1, 2);
    m_grid->addWidget(Label_gamma, 4, 0);
    m_grid->addWidget(Txt_gamma, 4, 1, 1, 2);
    m_grid->addWidget(Label_weights, 5, 0);
    m_grid->addWidget(Txt_weights, 5, 1, 1, 2);
    m_grid->setColumnStretch(1, 1);
    m_layout = new QVBoxLayout(this);
    m_layout->addLayout(m_grid, 1);

    connect(Cmb_layer, &QComboBox::activated, this, [this] { Cmb_layer_Click(); });
    connect(Lst_inputs, &QListWidget::itemChanged, this, [this] {
        ProposeWeights();
        UpdatePicture();
        CombinationChanged();
    });
    connect(Cmb_op, &QComboBox::currentIndexChanged, this, [this] { OperatorChanged(); });
    connect(Txt_gamma, &QLineEdit::textChanged, this, [this] {
        UpdatePicture();
        CombinationChanged();
    });
    connect(Txt_weights, &QLineEdit::textChanged, this, [this] {
        UpdatePicture();
        CombinationChanged();
    });
    connect(cmd_sortie, &QPushButton::clicked, this, [this] { close(); });
    OperatorChanged();
}

void CombinationForm::Show() {
    exec();
}

std::string CombinationForm::Text(std::int16_t id) const {
    return m_texts.ResourceString(id);
}

int CombinationForm::NextRow() const {
    return m_grid->rowCount();
}

void CombinationForm::AddButtonRow(const std::vector<QPushButton*>& buttons) {
    auto* row = new QHBoxLayout;
    row->addStretch();
    for (QPushButton* button : buttons) {
        row->addWidget(button);
    }
    row->addWidget(cmd_sortie);
    m_layout->addLayout(row);
}

void CombinationForm::FillLayers() {
    const std::shared_ptr<host::IFeatureLayer> before = ChosenLayer();
    Cmb_layer->clear();
    m_layers.clear();
    m_layerIndexes.clear();
    try {
        const auto document = m_state.g_app ? m_state.g_app->Document() : nullptr;
        const auto map = document ? document->FocusMap() : nullptr;
        for (std::int32_t i = 0; map && i < map->LayerCount(); ++i) {
            auto layer = std::dynamic_pointer_cast<host::IFeatureLayer>(map->Layer(i));
            if (!layer || !layer->Selectable() || !layer->FeatureClass() ||
                layer->FeatureClass()->ShapeType() != host::kGeometryPolygon) {
                continue;
            }
            Cmb_layer->addItem(Q(layer->Name()));
            m_layers.push_back(std::move(layer));
            m_layerIndexes.push_back(i);
        }
    } catch (const std::exception&) {
        // The layers listed so far stay; a map the host cannot walk lists no more.
    }
    // The layer chosen before, else the component's chosen layer, else the first.
    int chosen = 0;
    for (std::size_t k = 0; k < m_layers.size(); ++k) {
        if (m_layers[k] == before || (!before && m_layerIndexes[k] == m_state.g_layer_index &&
                                      m_layers[k]->Name() == m_state.g_layer_name)) {
            chosen = static_cast<int>(k);
        }
    }
    Cmb_layer->setCurrentIndex(m_layers.empty() ? -1 : chosen);
    Cmb_layer_Click();
}

std::shared_ptr<host::IFeatureLayer> CombinationForm::ChosenLayer() const {
    const int index = Cmb_layer->currentIndex();
    return index >= 0 && static_cast<std::size_t>(index) < m_layers.size()
               ? m_layers[static_cast<std::size_t>(index)]
               : nullptr;
}

void CombinationForm::Cmb_layer_Click() {
    const int index = Cmb_layer->currentIndex();
    if (const auto layer = ChosenLayer()) {
        const auto workspace = layer->FeatureClass()->Workspace();
        m_state.g_layer_name = layer->Name();
        m_state.g_layer_path = workspace ? workspace->PathName() : std::string();
        m_state.g_layer_index = m_layerIndexes[static_cast<std::size_t>(index)];
    }
    FillInputs();
}

void CombinationForm::ProposeWeights() {
    // Equal weights, one per ticked field, until the user types others.
    const QString typed = Txt_weights->text();
    bool onlyOnes = true;
    for (const QString& part : typed.split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
        onlyOnes = onlyOnes && part.trimmed() == QStringLiteral("1");
    }
    if (!onlyOnes) {
        return;
    }
    QStringList ones;
    for (std::size_t i = 0; i < CheckedInputs().size(); ++i) {
        ones << QStringLiteral("1");
    }
    const QSignalBlocker quiet(Txt_weights);
    Txt_weights->setText(ones.join(QStringLiteral("; ")));
}

void CombinationForm::FillInputs() {
    const std::vector<std::string> ticked = CheckedInputs();
    const QSignalBlocker quiet(Lst_inputs);
    Lst_inputs->clear();
    const auto layer = ChosenLayer();
    std::vector<CombinableField> fields;
    try {
        fields =
            layer ? CombinableFields(*layer, m_unrecordedInRange) : std::vector<CombinableField>();
    } catch (const std::exception& e) {
        Lst_inputs->addItem(QString::fromUtf8(e.what()));
        Lst_inputs->item(0)->setFlags(Qt::NoItemFlags);
    }
    QFont bold = Lst_inputs->font();
    bold.setBold(true);
    for (const CombinableField& field : fields) {
        auto* item = new QListWidgetItem(Q(field.name), Lst_inputs);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        const bool tick = std::find(ticked.begin(), ticked.end(), field.name) != ticked.end();
        item->setCheckState(tick ? Qt::Checked : Qt::Unchecked);
        item->setData(kRecordedRole, field.recorded);
        if (field.recorded) {
            item->setText(Q(field.name) + QStringLiteral("  ★"));
            item->setData(Qt::UserRole, Q(field.name));
            item->setFont(bold);
        } else {
            item->setData(Qt::UserRole, Q(field.name));
        }
    }
    if (layer && fields.empty() && Lst_inputs->count() == 0) {
        auto* item = new QListWidgetItem(Q(Text(kTextNoCombinableField)), Lst_inputs);
        item->setFlags(Qt::NoItemFlags);
    }
    CombinationChanged();
}

void CombinationForm::CheckInputs(const std::vector<std::string>& names) {
    for (int i = 0; i < Lst_inputs->count(); ++i) {
        QListWidgetItem* item = Lst_inputs->item(i);
        if ((item->flags() & Qt::ItemIsUserCheckable) == 0) {
            continue;
        }
        const std::string name = item->data(Qt::UserRole).toString().toStdString();
        const bool tick = std::find(names.begin(), names.end(), name) != names.end();
        item->setCheckState(tick ? Qt::Checked : Qt::Unchecked);
    }
}

std::vector<std::string> CombinationForm::CheckedInputs() const {
    std::vector<std::string> names;
    for (int i = 0; i < Lst_inputs->count(); ++i) {
        const QListWidgetItem* item = Lst_inputs->item(i);
        if ((item->flags() & Qt::ItemIsUserCheckable) != 0 && item->checkState() == Qt::Checked) {
            names.push_back(item->data(Qt::UserRole).toString().toStdString());
        }
    }
    return names;
}

bool CombinationForm::IsMarked(const std::string& name) const {
    for (int i = 0; i < Lst_inputs->count(); ++i) {
        const QListWidgetItem* item = Lst_inputs->item(i);
        if (item->data(Qt::UserRole).toString().toStdString() == name) {
            return item->data(kRecordedRole).toBool();
        }
    }
    return false;
}

std::variant<criterion::Aggregation, std::string> CombinationForm::TypedAggregation() const {
    criterion::Aggregation aggregation;
    aggregation.op =
        criterion::ParseAggregationOperator(Cmb_op->currentData().toString().toStdString())
            .value_or(criterion::AggregationOperator::And);
    const auto notANumber = [this](const QLabel& label, const QString& text) {
        QString name = label.text();
        name.remove(QLatin1Char(':'));
        QString message = Q(Text(kTextNotANumber));
        return message.replace(QStringLiteral("%1"), name.trimmed())
            .replace(QStringLiteral("%2"), text)
            .toStdString();
    };
    if (criterion::TakesGamma(aggregation.op)) {
        const auto gamma = ParseNumber(Txt_gamma->text());
        if (!gamma) {
            return notANumber(*Label_gamma, Txt_gamma->text());
        }
        aggregation.gamma = *gamma;
    }
    if (criterion::TakesWeights(aggregation.op)) {
        for (const QString& part : Txt_weights->text().split(QLatin1Char(';'))) {
            if (part.trimmed().isEmpty() && Txt_weights->text().trimmed().isEmpty()) {
                break; // no weights typed: the check says how many are wanted
            }
            const auto weight = ParseNumber(part);
            if (!weight) {
                return notANumber(*Label_weights, part.trimmed());
            }
            aggregation.weights.push_back(*weight);
        }
    }
    return aggregation;
}

void CombinationForm::OperatorChanged() {
    const auto op =
        criterion::ParseAggregationOperator(Cmb_op->currentData().toString().toStdString())
            .value_or(criterion::AggregationOperator::And);
    Label_gamma->setEnabled(criterion::TakesGamma(op));
    Txt_gamma->setEnabled(criterion::TakesGamma(op));
    Label_weights->setEnabled(criterion::TakesWeights(op));
    Txt_weights->setEnabled(criterion::TakesWeights(op));
    UpdatePicture();
    CombinationChanged();
}

void CombinationForm::UpdatePicture() {
    const auto typed = TypedAggregation();
    criterion::Aggregation aggregation;
    if (const auto* valid = std::get_if<criterion::Aggregation>(&typed)) {
        aggregation = *valid;
    } else {
        aggregation.op =
            criterion::ParseAggregationOperator(Cmb_op->currentData().toString().toStdString())
                .value_or(criterion::AggregationOperator::And);
        aggregation.gamma = 0.5;
    }
    Pic_operator->setPixmap(
        QPixmap::fromImage(OperatorPicture(aggregation, kPictureSize, PictureAlpha())));
}

} // namespace quorel::dialog
