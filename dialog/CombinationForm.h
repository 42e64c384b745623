#pragma once

// What the aggregation and query windows share: the layer, the fields to combine (those that
// carry a record first, marked), the operator with its parameter, and the operator's picture
// over two inputs. Texts come from the text database, by id, when the window is made.

#include "criterion/Aggregation.h"
#include "criterion/RunCriterion.h"

#include <QDialog>
#include <QImage>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

class QComboBox;
class QGridLayout;
class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QVBoxLayout;

namespace quorel::util {
class ITextSource;
}

namespace quorel::dialog {

// Text ids of the two windows.
inline constexpr std::int16_t kTextAggregationTitle = 340;
inline constexpr std::int16_t kTextLayer = 341;
inline constexpr std::int16_t kTextInputFields = 342;
inline constexpr std::int16_t kTextRecordedMark = 343;
inline constexpr std::int16_t kTextOperator = 344;
inline constexpr std::int16_t kTextGamma = 345;
inline constexpr std::int16_t kTextWeights = 346;
inline constexpr std::int16_t kTextOutputField = 347;
inline constexpr std::int16_t kTextQueryTitle = 348;
inline constexpr std::int16_t kTextCriteria = 349;
inline constexpr std::int16_t kTextAlpha = 350;
inline constexpr std::int16_t kTextSatisfied = 351;
inline constexpr std::int16_t kTextSelect = 352;
inline constexpr std::int16_t kTextSelected = 353;
inline constexpr std::int16_t kTextNotANumber = 354;
inline constexpr std::int16_t kTextNoCombinableField = 355;
inline constexpr std::int16_t kTextChooseLayer = 356;
// Shared with the definition dialog: "Calculer", "Quitter".
inline constexpr std::int16_t kTextCompute = 127;
inline constexpr std::int16_t kTextClose = 116;

// A field that may enter a combination; recorded when a criterion or an aggregation record
// describes it.
struct CombinableField {
    std::string name;
    bool recorded = false;
};

// The numeric fields of a layer that may be combined, those with a record first, then (with
// unrecordedInRange) the others whose every value lies in [0, 1], each group in table order.
std::vector<CombinableField> CombinableFields(host::IFeatureLayer& layer, bool unrecordedInRange);

// The operator over two inputs: each pixel coloured by the combined degree of (x, y), x from 0
// on the left to 1 on the right, y from 0 at the bottom to 1 at the top, from light yellow (0)
// to deep green (1), as the map shades degrees. With alpha, the pixels at or above it are
// outlined by a dark line. Weights that do not fit two inputs count as equal weights.
QImage OperatorPicture(const criterion::Aggregation& aggregation, int size,
                       std::optional<double> alpha = std::nullopt);

class CombinationForm : public QDialog {
public:
    CombinationForm(criterion::ComponentState& state, const util::ITextSource& texts,
                    bool unrecordedInRange, QWidget* parent);

    // Modal; returns when the window is closed.
    void Show();

    // The layer chosen in Cmb_layer becomes the component's chosen layer, and its fields are
    // listed.
    void Cmb_layer_Click();
    // Ticks the inputs by name (the others unticked), as the user would.
    void CheckInputs(const std::vector<std::string>& names);
    // The ticked fields, in the list's order.
    std::vector<std::string> CheckedInputs() const;
    // The operator and its parameter as typed, or the message saying which box is not a number.
    std::variant<criterion::Aggregation, std::string> TypedAggregation() const;
    // Whether a field of the list is marked as recorded.
    bool IsMarked(const std::string& name) const;

    QLabel* Label_layer;
    QComboBox* Cmb_layer;
    QLabel* Label_inputs;
    QListWidget* Lst_inputs;
    QLabel* Label_mark;
    QLabel* Label_op;
    QComboBox* Cmb_op;
    QLabel* Label_gamma;
    QLineEdit* Txt_gamma;
    QLabel* Label_weights;
    QLineEdit* Txt_weights;
    QLabel* Pic_operator;
    QPushButton* cmd_sortie;

protected:
    // The grid the derived window adds its own rows to, below the operator.
    QGridLayout& Grid() { return *m_grid; }
    int NextRow() const;
    // The window's buttons along the bottom, right-aligned, "Quitter" last.
    void AddButtonRow(const std::vector<QPushButton*>& buttons);
    std::string Text(std::int16_t id) const;
    // The chosen layer, or null.
    std::shared_ptr<host::IFeatureLayer> ChosenLayer() const;
    // Fills Cmb_layer again, choosing the layer chosen before when it is still there.
    void FillLayers();
    // Lists the chosen layer's fields again, keeping the ticks of those still there.
    void FillInputs();
    // Called when the inputs, the operator or its parameter change.
    virtual void CombinationChanged() {}
    // The picture's alpha, for the query.
    virtual std::optional<double> PictureAlpha() const { return std::nullopt; }
    void UpdatePicture();

    criterion::ComponentState& m_state;
    const util::ITextSource& m_texts;

private:
    void OperatorChanged();

    bool m_unrecordedInRange;
    QVBoxLayout* m_layout = nullptr;
    QGridLayout* m_grid = nullptr;
    std::vector<std::shared_ptr<host::IFeatureLayer>> m_layers; // Cmb_layer's entries
    std::vector<std::int32_t> m_layerIndexes;                   // their map positions
};

} // namespace quorel::dialog
