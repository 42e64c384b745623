#include "dialog/FrmAggregation.h"

#include "dialog/QtMessageUi.h"
#include "errors/ErrorLog.h"
#include "util/MessageUi.h"

#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>

namespace quorel::dialog {

FrmAggregation::FrmAggregation(criterion::ComponentState& state, const util::ITextSource& texts,
                               QWidget* parent)
    : CombinationForm(state, texts, true, parent), m_ownUi(std::make_unique<QtMessageUi>()),
      m_ownLog(std::make_unique<errors::ErrorLog>(*m_ownUi)), m_ui(m_ownUi.get()),
      m_log(m_ownLog.get()), m_records(criterion::LayerAggregationRecords) {
    Build();
}

FrmAggregation::FrmAggregation(criterion::ComponentState& state, const util::ITextSource& texts,
                               util::IMessageUi& ui, errors::ErrorLog& log, QWidget* parent)
    : CombinationForm(state, texts, true, parent), m_ui(&ui), m_log(&log),
      m_records(criterion::LayerAggregationRecords) {
    Build();
}

FrmAggregation::~FrmAggregation() = default;

void FrmAggregation::Build() {
    setObjectName(QStringLiteral("FrmAggregation"));
    setWindowTitle(QString::fromStdString(Text(kTextAggregationTitle)));
    Label_out = new QLabel(QString::fromStdString(Text(kTextOutputField)), this);
    Label_out->setObjectName(QStringLiteral("Label_out"));
    Txt_out = new QLineEdit(QString::fromLatin1(criterion::kDefaultAggregationName), this);
    Txt_out->setObjectName(QStringLiteral("Txt_out"));
    Label_out->setBuddy(Txt_out);
    const int row = NextRow();
    Grid().addWidget(Label_out, row, 0);
    Grid().addWidget(Txt_out, row, 1, 1, 2);

    cmd_go = new QPushButton(QString::fromStdString(Text(kTextCompute)), this);
    cmd_go->setObjectName(QStringLiteral("cmd_go"));
    cmd_go->setAutoDefault(false);
    AddButtonRow({cmd_go});
    connect(cmd_go, &QPushButton::clicked, this, [this] { cmd_go_Click(); });
    resize(560, 480);
    FillLayers();
}

criterion::RunOutcome FrmAggregation::cmd_go_Click() {
    const auto typed = TypedAggregation();
    if (const auto* refusal = std::get_if<std::string>(&typed)) {
        m_ui->MessageBox(*refusal, util::MessageIcon::Critical);
        return criterion::RunOutcome::Refused;
    }
    criterion::AggregationChoice choice;
    choice.inputs = CheckedInputs();
    choice.aggregation = std::get<criterion::Aggregation>(typed);
    choice.outputName = Txt_out->text().trimmed().toStdString();
    criterion::AggregationRun run(m_state, *m_ui, m_texts, *m_log, m_records);
    const criterion::RunOutcome outcome = run.Run(choice);
    FillInputs(); // the new field, recorded, among the inputs
    return outcome;
}

} // namespace quorel::dialog
