#pragma once

// Before the run: its default records factory needs the records type whole.
#include "fzy/AggregationRecords.h"

#include "criterion/AggregationRun.h"
#include "dialog/CombinationForm.h"

#include <memory>

class QLineEdit;

namespace quorel::errors {
class ErrorLog;
}
namespace quorel::util {
class IMessageUi;
}

namespace quorel::dialog {

// The aggregation window "Agrégation souple de critères": the layer, two or more input fields,
// the operator with its parameter and the output name; Calculer adds and fills the field
// through the host as a criterion run does, and records the aggregation.
class FrmAggregation final : public CombinationForm {
public:
    // Boxes shown by Qt, failures logged beside the component.
    FrmAggregation(criterion::ComponentState& state, const util::ITextSource& texts,
                   QWidget* parent = nullptr);
    FrmAggregation(criterion::ComponentState& state, const util::ITextSource& texts,
                   util::IMessageUi& ui, errors::ErrorLog& log, QWidget* parent = nullptr);
    ~FrmAggregation() override;

    // Where the records go for a source that keeps its own; a shapefile's go beside it.
    void SetRecords(criterion::AggregationRecordsFactory records) {
        m_records = std::move(records);
    }

    // Calculer: refuses a parameter that is not a number, then runs the aggregation, which
    // reports its own refusals and failures; the new field is listed at once.
    criterion::RunOutcome cmd_go_Click();

    QLabel* Label_out;
    QLineEdit* Txt_out;
    QPushButton* cmd_go;

private:
    void Build();

    std::unique_ptr<util::IMessageUi> m_ownUi;
    std::unique_ptr<errors::ErrorLog> m_ownLog;
    util::IMessageUi* m_ui;
    errors::ErrorLog* m_log;
    criterion::AggregationRecordsFactory m_records; // a shapefile's by default
};

} // namespace quorel::dialog
