#pragma once

#include "lang/FormLabels.h"

#include <QFont>

#include <memory>
#include <optional>
#include <string>
#include <vector>

class QWidget;

namespace quorel::dialog {

// A control of a Qt form as the labelling sees it. Caption is the text of a label, a button or
// a group box; Text that of a line edit or a text box; the Tag is the widget's dynamic property
// "Tag".
class QtLabelledControl final : public lang::ILabelledControl {
public:
    explicit QtLabelledControl(QWidget& widget) : m_widget(widget) {}

    std::string Name() const override;
    std::string Tag() const override;
    std::optional<std::string> Caption() const override;
    bool SetCaption(const std::string& caption) override;
    bool SetText(const std::string& text) override;
    bool SetToolTipText(const std::string& text) override;
    bool UseFormFont() override;
    bool SetFontName(const std::string& fontName) override;

private:
    QWidget& m_widget;
};

// A Qt window and its widgets, in the order they were made, as a form to label.
class QtLabelledForm final : public lang::ILabelledForm {
public:
    explicit QtLabelledForm(QWidget& form) : m_form(form) {}

    std::string Name() const override;
    std::string Tag() const override;
    void SetCaption(const std::string& caption) override;
    std::vector<lang::ILabelledControl*> Controls() override;

    // The control of that object name, or nullptr.
    lang::ILabelledControl* Control(const std::string& name);

private:
    QWidget& m_form;
    std::vector<std::unique_ptr<QtLabelledControl>> m_controls;
};

// The Tag of a widget, a dynamic property as the designer would set it.
void SetTag(QWidget& widget, const char* tag);

// Tahoma where it is installed, otherwise the platform's sans-serif.
QFont FormFont();

} // namespace quorel::dialog
