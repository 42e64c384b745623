#pragma once

#include "fzy/IO_fzyext.h"

#include <QDialog>

#include <functional>
#include <string>

class QPlainTextEdit;
class QPushButton;

namespace quorel::lang {
class clsResourceMDB;
} // namespace quorel::lang

namespace quorel::dialog {

// The metadata window "Métadonnées d'un critère souple": what the metadata file records about
// a field, in an editable text box whose changes are never saved.
class frm_display_fzy final : public QDialog {
    Q_OBJECT

public:
    explicit frm_display_fzy(QWidget* parent = nullptr);

    // The load: the current language's texts; a failure is ignored.
    void Form_Load(const lang::clsResourceMDB* resource) noexcept;
    void cmdQuit_Click();

    QPlainTextEdit* Txt_infofield;
    QPushButton* cmdQuit;
};

// Shows the metadata window modally for the metadata operations: a fresh window each time,
// labelled in the current language, holding the description text.
class InfoWindow final : public fzy::IInfoWindow {
public:
    explicit InfoWindow(std::function<const lang::clsResourceMDB*()> resource)
        : m_resource(std::move(resource)) {}

    void ShowModal(const std::string& text) override;

private:
    std::function<const lang::clsResourceMDB*()> m_resource;
};

} // namespace quorel::dialog
