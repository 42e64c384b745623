#pragma once

#include <QDialog>

#include <string>
#include <vector>

class QGroupBox;
class QLabel;
class QListWidget;
class QPlainTextEdit;
class QPushButton;

namespace quorel::lang {
class clsResourceMDB;
} // namespace quorel::lang

namespace quorel::dialog {

// The statistics window "Statistiques du champ": the distinct values of a field in List1 and
// the summary in Text1.
class Statistiques final : public QDialog {
    Q_OBJECT

public:
    explicit Statistiques(QWidget* parent = nullptr);

    // The load: puts the current language's texts on the window.
    void Form_Load(const lang::clsResourceMDB* resource);
    void Fill(const std::vector<std::string>& lines, const std::string& summary);
    void Command1_Click();

    QGroupBox* Frame1;
    QListWidget* List1;
    QGroupBox* Frame2;
    QLabel* Label1;
    QPlainTextEdit* Text1;
    QPushButton* Command1;
};

} // namespace quorel::dialog
