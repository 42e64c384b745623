#pragma once

#include "dialog/CombinationForm.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

class QDoubleSpinBox;
class QSlider;

namespace quorel::dialog {

// The query window "Requête souple": criterion fields combined by an operator, and a threshold
// alpha in [0, 1] moved by a slider or typed in a box. It shows, as alpha moves, how many
// features have a combined degree of at least alpha; Sélectionner makes them the layer's
// selection in the host.
class FrmQuery final : public CombinationForm {
public:
    FrmQuery(criterion::ComponentState& state, const util::ITextSource& texts,
             QWidget* parent = nullptr);

    void SetAlpha(double alpha);
    double Alpha() const;
    // How many features satisfy the condition now; nothing while it cannot be computed (the
    // count's line then says why).
    std::optional<std::size_t> SatisfiedCount() const;
    // Sélectionner: the satisfying features become the chosen layer's selection.
    void cmd_select_Click();

    QLabel* Label_alpha;
    QSlider* Sld_alpha;
    QDoubleSpinBox* Txt_alpha;
    QLabel* Lbl_count;
    QPushButton* cmd_select;

private:
    void CombinationChanged() override;
    std::optional<double> PictureAlpha() const override { return Alpha(); }
    void AlphaChanged();
    void ShowCount();

    criterion::Aggregation m_aggregation;
    // The inputs read for one layer and list of fields, kept while only the operator changes.
    const host::IFeatureLayer* m_readLayer = nullptr;
    std::vector<std::string> m_readFields;
    criterion::AggregationInputs m_inputs;
    std::vector<std::optional<double>> m_degrees;
    std::vector<double> m_sorted; // the non-null degrees, ascending
    std::optional<std::string> m_problem;
};

} // namespace quorel::dialog
