#pragma once

#include "dialog/DialogContext.h"
#include "dialog/QtLabelledForm.h"
#include "dialog/QtListControl.h"
#include "lang/LanguageList.h"

#include <QDialog>

#include <array>
#include <memory>
#include <optional>
#include <string>

class QFrame;
class QGroupBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QTimer;
class QToolButton;

namespace quorel::lang {
class clsResourceMDB;
} // namespace quorel::lang

namespace quorel::dialog {

class FieldValuesReader;
class PreviewView;
struct FieldPreviewData;

// The definition dialog "Définition d'un critère de classification souple": the layer, its
// numeric field, the shape and its parameters, the output name, and the run.
class frm_back final : public QDialog, public lang::ILanguageDialog, public criterion::IRunDialog {
    Q_OBJECT

public:
    explicit frm_back(DialogContext& context, QWidget* parent = nullptr);
    ~frm_back() override;

    // The load: texts, language list, pictures and the candidate layers.
    void Form_Load();

    // Handlers, named after their control and event.
    void cmd_open_shape_Click();
    void choose_shapefile();
    void Lst_shapes_MouseUp();
    void Lst_fields_MouseUp();
    void SelectKind(int kind);
    void ShowKindExplanation(int kind);
    void cmd_go_Click();
    void cmdStats_Click();
    void sum_table_Click();
    void listlang1_Click();
    void cmd_sortie_Click();
    void cmd_suggest_Click();

    // The live preview: reads the selected field's values (on a worker thread) when the field
    // or the chosen layer changes, and redraws the curve and the counts from the shape and the
    // boxes. Both run on their own when the controls change.
    void RefreshPreviewField();
    void RefreshPreview();
    // Whether the selected field's values are being read.
    bool PreviewReading() const;

    // lang::ILanguageDialog
    lang::ILabelledForm& Form() override { return m_form; }
    util::IListControl& LanguageList() override { return *m_languages; }

    // criterion::IRunDialog
    std::int32_t FieldListIndex() const override { return m_fields->ListIndex(); }
    std::string FieldListText() const override { return m_fields->Text(); }
    void ClearFieldList() override { m_fields->Clear(); }
    void AddFieldListItem(const std::string& name) override { m_fields->AddItem(name); }
    std::string ParameterText(int box) const override;
    std::string NewNameText() const override;

    QtListControl& ShapeList() { return *m_shapes; }
    QtListControl& FieldList() { return *m_fields; }
    DialogContext& Context() { return m_context; }
    // The current text object (gResource), null before the first load.
    lang::clsResourceMDB* Resource() const;

    QListWidget* listlang1;
    QLabel* Label1;
    QListWidget* Lst_shapes;
    QLabel* Label2;
    QListWidget* Lst_fields;
    QLabel* Label3;
    QLineEdit* Txt_new_name;
    std::array<QToolButton*, 5> cmd_nf;
    QLabel* Picture1;
    QGroupBox* frame3;
    QGroupBox* Frame5;
    QGroupBox* Frame6;
    QGroupBox* Frame7;
    QLineEdit* Txt_val_a;
    QLineEdit* Txt_val_b;
    QLineEdit* Txt_val_c;
    QLineEdit* Txt_val_d;
    QPlainTextEdit* Txt_explique;
    QPushButton* cmd_go;
    QPushButton* cmd_sortie;
    QPushButton* cmdStats;
    QPushButton* sum_table;
    QPushButton* cmd_open_shape;
    PreviewView* Pic_preview;
    QPushButton* cmd_suggest;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void BuildControls();
    void LayOut();
    void FillCandidateLayers(std::optional<int>& marker);
    void PrefixMainButtons();
    void LabelSuggest();
    std::string Text(std::int16_t id) const;
    // The local error message of the load and the layer choice.
    void ShowLocalError(const std::exception& error, const std::string& label,
                        const std::optional<int>& marker, const std::string& after = {});

    DialogContext& m_context;
    QtLabelledForm m_form;
    std::unique_ptr<QtListControl> m_languages;
    std::unique_ptr<QtListControl> m_shapes;
    std::unique_ptr<QtListControl> m_fields;

    std::unique_ptr<FieldValuesReader> m_reader;
    QTimer* m_previewTimer = nullptr;
    // The field whose values the preview holds or reads: layer position, name and field.
    std::string m_previewKey;
    std::string m_previewFieldName;
    std::shared_ptr<const FieldPreviewData> m_previewData;
    std::optional<std::string> m_previewFailure; // why the values cannot be read
};

// Shows frm_back modally, without an owner, and returns when it is closed.
void Mainprog(DialogContext& context);

} // namespace quorel::dialog
