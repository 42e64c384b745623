#include "dialog/QtLabelledForm.h"

#include <QAbstractButton>
#include <QApplication>
#include <QFontDatabase>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QTextEdit>
#include <QVariant>
#include <QWidget>

namespace quorel::dialog {

namespace {

constexpr const char* kTagProperty = "Tag";

QString ToQt(const std::string& text) {
    return QString::fromStdString(text);
}

} // namespace

std::string QtLabelledControl::Name() const {
    return m_widget.objectName().toStdString();
}

std::string QtLabelledControl::Tag() const {
    return m_widget.property(kTagProperty).toString().toStdString();
}

std::optional<std::string> QtLabelledControl::Caption() const {
    if (const auto* label = qobject_cast<const QLabel*>(&m_widget)) {
        return label->text().toStdString();
    }
    if (const auto* button = qobject_cast<const QAbstractButton*>(&m_widget)) {
        return button->text().toStdString();
    }
    if (const auto* group = qobject_cast<const QGroupBox*>(&m_widget)) {
        return group->title().toStdString();
    }
    return std::nullopt;
}

bool QtLabelledControl::SetCaption(const std::string& caption) {
    if (auto* label = qobject_cast<QLabel*>(&m_widget)) {
        label->setText(ToQt(caption));
        return true;
    }
    if (auto* button = qobject_cast<QAbstractButton*>(&m_widget)) {
        button->setText(ToQt(caption));
        return true;
    }
    if (auto* group = qobject_cast<QGroupBox*>(&m_widget)) {
        group->setTitle(ToQt(caption));
        return true;
    }
    return false;
}

bool QtLabelledControl::SetText(const std::string& text) {
    if (auto* line = qobject_cast<QLineEdit*>(&m_widget)) {
        line->setText(ToQt(text));
        return true;
    }
    if (auto* box = qobject_cast<QPlainTextEdit*>(&m_widget)) {
        box->setPlainText(ToQt(text));
        return true;
    }
    if (auto* rich = qobject_cast<QTextEdit*>(&m_widget)) {
        rich->setPlainText(ToQt(text));
        return true;
    }
    return false;
}

bool QtLabelledControl::SetToolTipText(const std::string& text) {
    m_widget.setToolTip(ToQt(text));
    return true;
}

bool QtLabelledControl::UseFormFont() {
    m_widget.setFont(m_widget.window()->font());
    return true;
}

bool QtLabelledControl::SetFontName(const std::string& fontName) {
    // A new font of that family; its size is the application's default, not the family's.
    QFont font(ToQt(fontName));
    font.setPointSizeF(QApplication::font().pointSizeF());
    m_widget.setFont(font);
    return true;
}

std::string QtLabelledForm::Name() const {
    return m_form.objectName().toStdString();
}

std::string QtLabelledForm::Tag() const {
    return m_form.property(kTagProperty).toString().toStdString();
}

void QtLabelledForm::SetCaption(const std::string& caption) {
    m_form.setWindowTitle(ToQt(caption));
}

std::vector<lang::ILabelledControl*> QtLabelledForm::Controls() {
    m_controls.clear();
    std::vector<lang::ILabelledControl*> result;
    for (QWidget* widget : m_form.findChildren<QWidget*>()) {
        if (widget->objectName().isEmpty() ||
            widget->objectName().startsWith(QLatin1String("qt_"))) {
            continue;
        }
        m_controls.push_back(std::make_unique<QtLabelledControl>(*widget));
        result.push_back(m_controls.back().get());
    }
    return result;
}

lang::ILabelledControl* QtLabelledForm::Control(const std::string& name) {
    for (lang::ILabelledControl* control : Controls()) {
        if (control->Name() == name) {
            return control;
        }
    }
    return nullptr;
}

void SetTag(QWidget& widget, const char* tag) {
    widget.setProperty(kTagProperty, QString::fromUtf8(tag));
}

QFont FormFont() {
    if (QFontDatabase::hasFamily(QStringLiteral("Tahoma"))) {
        QFont tahoma(QStringLiteral("Tahoma"));
        tahoma.setPointSizeF(QApplication::font().pointSizeF());
        return tahoma;
    }
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setStyleHint(QFont::SansSerif);
    return font;
}

} // namespace quorel::dialog
