#include "dialog/FrmQuery.h"

#include "host/api/Selection.h"
#include "util/NumberText.h"
#include "util/TextSource.h"

#include <QDoubleSpinBox>
#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QSlider>

#include <algorithm>
#include <cmath>

namespace quorel::dialog {
namespace {

constexpr int kSliderSteps = 100;

QString Filled(std::string text, const std::vector<std::string>& values) {
    QString result = QString::fromStdString(text);
    for (std::size_t i = 0; i < values.size(); ++i) {
        result.replace(QStringLiteral("%") + QString::number(i + 1),
                       QString::fromStdString(values[i]));
    }
    return result;
}

} // namespace

FrmQuery::FrmQuery(criterion::ComponentState& state, const util::ITextSource& texts,
                   QWidget* parent)
    : CombinationForm(state, texts, false, parent) {
    setObjectName(QStringLiteral("FrmQuery"));
    setWindowTitle(QString::fromStdString(Text(kTextQueryTitle)));
    Label_alpha = new QLabel(QString::fromStdString(Text(kTextAlpha)), this);
    Label_alpha->setObjectName(QStringLiteral("Label_alpha"));
    Sld_alpha = new QSlider(Qt::Horizontal, this);
    Sld_alpha->setObjectName(QStringLiteral("Sld_alpha"));
    Sld_alpha->setRange(0, kSliderSteps);
    Sld_alpha->setPageStep(10);
    Txt_alpha = new QDoubleSpinBox(this);
    Txt_alpha->setObjectName(QStringLiteral("Txt_alpha"));
    Txt_alpha->setRange(0, 1);
    Txt_alpha->setDecimals(2);
    Txt_alpha->setSingleStep(0.01);
    Label_alpha->setBuddy(Txt_alpha);
    Lbl_count = new QLabel(this);
    Lbl_count->setObjectName(QStringLiteral("Lbl_count"));
    Lbl_count->setWordWrap(true);
    Lbl_count->setMinimumHeight(Lbl_count->fontMetrics().height() * 2);
    const int row = NextRow();
    Grid().addWidget(Label_alpha, row, 0);
    Grid().addWidget(Sld_alpha, row, 1);
    Grid().addWidget(Txt_alpha, row, 2);
    Grid().addWidget(Lbl_count, row + 1, 0, 1, 3);

    cmd_select = new QPushButton(QString::fromStdString(Text(kTextSelect)), this);
    cmd_select->setObjectName(QStringLiteral("cmd_select"));
    cmd_select->setAutoDefault(false);
    AddButtonRow({cmd_select});
    connect(Sld_alpha, &QSlider::valueChanged, this, [this](int value) {
        const QSignalBlocker quiet(Txt_alpha);
        Txt_alpha->setValue(static_cast<double>(value) / kSliderSteps);
        AlphaChanged();
    });
    connect(Txt_alpha, &QDoubleSpinBox::valueChanged, this, [this](double value) {
        const QSignalBlocker quiet(Sld_alpha);
        Sld_alpha->setValue(static_cast<int>(std::lround(value * kSliderSteps)));
        AlphaChanged();
    });
    connect(cmd_select, &QPushButton::clicked, this, [this] { cmd_select_Click(); });
    SetAlpha(0.5);
    resize(560, 500);
    FillLayers();
}

void FrmQuery::SetAlpha(double alpha) {
    Txt_alpha->setValue(alpha); // the slider follows
}

double FrmQuery::Alpha() const {
    return Txt_alpha->value();
}

std::optional<std::size_t> FrmQuery::SatisfiedCount() const {
    if (m_problem) {
        return std::nullopt;
    }
    return static_cast<std::size_t>(m_sorted.end() -
                                    std::lower_bound(m_sorted.begin(), m_sorted.end(), Alpha()));
}

void FrmQuery::CombinationChanged() {
    m_problem.reset();
    m_degrees.clear();
    m_sorted.clear();
    const auto layer = ChosenLayer();
    const std::vector<std::string> fields = CheckedInputs();
    const auto typed = TypedAggregation();
    if (!layer) {
        m_problem = Text(kTextChooseLayer);
    } else if (const auto* refusal = std::get_if<std::string>(&typed)) {
        m_problem = *refusal;
    } else if (auto check = criterion::CheckAggregation(std::get<criterion::Aggregation>(typed),
                                                        fields.size(), m_texts)) {
        m_problem = std::move(check);
    }
    if (m_problem) {
        ShowCount();
        return;
    }
    m_aggregation = std::get<criterion::Aggregation>(typed);
    try {
        if (layer.get() != m_readLayer || fields != m_readFields) {
            m_readLayer = nullptr;
            const auto cursor = layer->Search(false);
            m_inputs = criterion::ReadAggregationInputs(*cursor, fields);
            m_readLayer = layer.get();
            m_readFields = fields;
        }
        if (auto outOfRange = criterion::CheckInputRange(m_inputs, fields, m_texts)) {
            m_problem = std::move(outOfRange);
        } else {
            m_degrees = criterion::CombinedDegrees(m_aggregation, m_inputs);
            for (const auto& degree : m_degrees) {
                if (degree) {
                    m_sorted.push_back(*degree);
                }
            }
            std::sort(m_sorted.begin(), m_sorted.end());
        }
    } catch (const std::exception& e) {
        m_problem = e.what();
    }
    ShowCount();
}

void FrmQuery::AlphaChanged() {
    UpdatePicture();
    ShowCount();
}

void FrmQuery::ShowCount() {
    const auto count = SatisfiedCount();
    cmd_select->setEnabled(count.has_value() && host::SelectionOf(ChosenLayer()) != nullptr);
    if (!count) {
        Lbl_count->setText(QString::fromStdString(m_problem.value_or(std::string())));
        return;
    }
    Lbl_count->setText(Filled(Text(kTextSatisfied),
                              {std::to_string(*count), std::to_string(m_inputs.FeatureCount()),
                               util::FormatNumber(Alpha())}));
}

void FrmQuery::cmd_select_Click() {
    const auto layer = ChosenLayer();
    host::IFeatureSelection* selection = host::SelectionOf(layer);
    if (!selection || m_problem) {
        return;
    }
    const auto ids = criterion::SelectAtLeast(m_inputs.ids, m_degrees, Alpha());
    selection->SelectFeatures(ids);
    if (const auto bar = m_state.g_app ? m_state.g_app->StatusBar() : nullptr) {
        bar->Message(
            0,
            Filled(Text(kTextSelected), {std::to_string(ids.size()), layer->Name()}).toStdString());
    }
}

} // namespace quorel::dialog
