#pragma once

#include "util/MessageUi.h"

class QWidget;

namespace quorel::dialog {

// The component's message boxes, beep and busy pointer on the desktop: a modal QMessageBox
// with a single OK button, QApplication::beep and the wait cursor.
class QtMessageUi final : public util::IMessageUi {
public:
    QtMessageUi() = default;
    ~QtMessageUi() override;
    QtMessageUi(const QtMessageUi&) = delete;
    QtMessageUi& operator=(const QtMessageUi&) = delete;

    void MessageBox(const std::string& text, util::MessageIcon icon,
                    const std::optional<std::string>& title = std::nullopt) override;
    void Beep() override;
    // The busy pointer is one state, not a count: showing it twice needs one restore.
    void SetBusy(bool busy) override;

    bool Busy() const { return m_busy; }

private:
    bool m_busy = false;
};

} // namespace quorel::dialog
