// The Qt implementations of the shared interfaces: message boxes, list boxes, labelled forms.

#include "tests/dialog/DialogFixture.h"

#include "dialog/QtLabelledForm.h"
#include "dialog/QtListControl.h"
#include "dialog/QtMessageUi.h"

#include <QApplication>
#include <QDialog>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>

namespace quorel::dialog::test {
namespace {

TEST_F(DialogTest, messageBoxesShowOneOkButtonWithTheirIconAndTitle) {
    using util::MessageIcon;
    for (const auto& [icon, shown, title, expectedTitle] :
         {std::tuple{MessageIcon::None, QMessageBox::NoIcon, std::optional<std::string>(),
                     std::string(util::kDefaultTitle)},
          std::tuple{MessageIcon::Critical, QMessageBox::Critical,
                     std::optional<std::string>("Error#5 - x"), std::string("Error#5 - x")},
          std::tuple{MessageIcon::Exclamation, QMessageBox::Warning,
                     std::optional<std::string>("Unexpected Program Error"),
                     std::string("Unexpected Program Error")},
          std::tuple{MessageIcon::Information, QMessageBox::Information,
                     std::optional<std::string>(""), std::string()}}) {
        QtMessageUi ui;
        QMessageBox::Icon seenIcon = QMessageBox::NoIcon;
        std::string seenTitle;
        std::string text;
        int buttons = 0;
        const auto seen = OnNextModal([&](QWidget& window) {
            auto& box = dynamic_cast<QMessageBox&>(window);
            seenIcon = box.icon();
            seenTitle = box.windowTitle().toStdString();
            text = box.text().toStdString();
            buttons = static_cast<int>(box.buttons().size());
        });
        ui.MessageBox("first line\r\nsecond line", icon, title);
        ASSERT_TRUE(*seen);
        EXPECT_EQ(seenIcon, shown);
        EXPECT_EQ(seenTitle, expectedTitle);
        EXPECT_EQ(text, "first line\nsecond line");
        EXPECT_EQ(buttons, 1);
    }
}

TEST_F(DialogTest, busyPointerIsOneStateRestoredOnce) {
    QtMessageUi ui;
    ui.SetBusy(true);
    ui.SetBusy(true);
    ASSERT_NE(QApplication::overrideCursor(), nullptr);
    EXPECT_EQ(QApplication::overrideCursor()->shape(), Qt::WaitCursor);
    ui.SetBusy(false);
    EXPECT_EQ(QApplication::overrideCursor(), nullptr);
    ui.SetBusy(false);
    EXPECT_EQ(QApplication::overrideCursor(), nullptr);
}

TEST_F(DialogTest, listControlRaisesItsClickOncePerSelectionButNotWhenCleared) {
    QListWidget widget;
    QtListControl list(widget);
    int clicks = 0;
    list.SetClickHandler([&] { ++clicks; });
    list.AddItem("fr");
    list.AddItem("en");
    list.AddItem("en");
    EXPECT_EQ(list.ListIndex(), -1);
    EXPECT_EQ(list.List(-1), "");
    list.SetListIndex(1);
    EXPECT_EQ(clicks, 1);
    list.SetListIndex(1);
    EXPECT_EQ(clicks, 2);
    EXPECT_EQ(list.Text(), "en");
    // The first equal entry is selected; another letter case is no match and no click.
    EXPECT_EQ(util::SelectListItem(list, "fr"), 0);
    EXPECT_EQ(util::SelectListItem(list, "en"), 1);
    EXPECT_EQ(util::SelectListItem(list, "EN"), -1);
    EXPECT_EQ(list.ListIndex(), 1);
    EXPECT_EQ(clicks, 4);
    widget.setCurrentRow(2); // as the user's click or arrow key changes it
    EXPECT_EQ(clicks, 5);
    list.Clear();
    EXPECT_EQ(clicks, 5);
    EXPECT_EQ(list.ListCount(), 0);
    EXPECT_EQ(list.ListIndex(), -1);
}

TEST_F(DialogTest, labelledFormMapsCaptionTextTooltipAndFont) {
    QDialog form;
    form.setObjectName(QStringLiteral("frm"));
    SetTag(form, "119");
    auto* label = new QLabel(QStringLiteral("L"), &form);
    label->setObjectName(QStringLiteral("Label1"));
    SetTag(*label, "12:");
    auto* button = new QPushButton(QStringLiteral("B"), &form);
    button->setObjectName(QStringLiteral("cmd"));
    auto* frame = new QGroupBox(QStringLiteral("G"), &form);
    frame->setObjectName(QStringLiteral("Frame1"));
    auto* line = new QLineEdit(&form);
    line->setObjectName(QStringLiteral("Txt"));
    auto* box = new QPlainTextEdit(&form);
    box->setObjectName(QStringLiteral("Text1"));
    auto* list = new QListWidget(&form);
    list->setObjectName(QStringLiteral("List1"));
    QtLabelledForm labelled(form);
    EXPECT_EQ(labelled.Name(), "frm");
    EXPECT_EQ(labelled.Tag(), "119");
    labelled.SetCaption("title");
    EXPECT_EQ(form.windowTitle(), QStringLiteral("title"));
    std::vector<std::string> names;
    for (lang::ILabelledControl* control : labelled.Controls()) {
        names.push_back(control->Name());
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"Label1", "cmd", "Frame1", "Txt", "Text1", "List1"}));
    EXPECT_EQ(labelled.Control("Label1")->Tag(), "12:");
    EXPECT_EQ(labelled.Control("cmd")->Tag(), "");
    for (const char* captioned : {"Label1", "cmd", "Frame1"}) {
        lang::ILabelledControl& control = *labelled.Control(captioned);
        EXPECT_TRUE(control.SetCaption("caption")) << captioned;
        EXPECT_EQ(control.Caption(), "caption") << captioned;
        EXPECT_FALSE(control.SetText("text")) << captioned;
    }
    for (const char* boxed : {"Txt", "Text1", "List1"}) {
        EXPECT_FALSE(labelled.Control(boxed)->SetCaption("caption")) << boxed;
        EXPECT_EQ(labelled.Control(boxed)->Caption(), std::nullopt) << boxed;
    }
    EXPECT_TRUE(labelled.Control("Txt")->SetText("typed"));
    EXPECT_EQ(line->text(), QStringLiteral("typed"));
    EXPECT_TRUE(labelled.Control("Text1")->SetText("several"));
    EXPECT_EQ(box->toPlainText(), QStringLiteral("several"));
    EXPECT_FALSE(labelled.Control("List1")->SetText("x"));
    EXPECT_TRUE(labelled.Control("cmd")->SetToolTipText("tip"));
    EXPECT_EQ(button->toolTip(), QStringLiteral("tip"));
    EXPECT_TRUE(labelled.Control("cmd")->SetFontName("DejaVu Serif"));
    EXPECT_EQ(button->font().family(), QStringLiteral("DejaVu Serif"));
    EXPECT_EQ(button->font().pointSizeF(), QApplication::font().pointSizeF());
    EXPECT_FALSE(button->font().bold());
}

} // namespace
} // namespace quorel::dialog::test
