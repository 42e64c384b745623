#pragma once

#include "lang/FormLabels.h"
#include "util/ListControl.h"

#include <functional>
#include <string>
#include <vector>

namespace quorel::errors {
class ErrorLog;
} // namespace quorel::errors

namespace quorel::lang {

class clsResourceMDB;

// What the language list's logic needs from the definition dialog: the form (its name, its
// tagged controls) and its language list listlang1.
class ILanguageDialog {
public:
    virtual ~ILanguageDialog() = default;
    virtual ILabelledForm& Form() = 0;
    virtual util::IListControl& LanguageList() = 0;
};

// Fills listlang1 and selects the current language, which raises the list's click. Any error
// ends it silently.
void InitLanguageList(ILanguageDialog& dialog, clsResourceMDB* resource) noexcept;

// The click of listlang1: switches to the chosen language when it differs, relabels the form,
// remembers the language and puts the leading blank back on cmd_sortie and cmd_go. Errors are
// reported through log.ReportError as "listLang1_Click".
void listlang1_Click(ILanguageDialog& dialog, clsResourceMDB* resource,
                     errors::ErrorLog& log) noexcept;

// A list held in memory, for tests and for the command line. Selecting an entry calls onClick,
// as the list box raises its click.
class PlainListControl final : public util::IListControl {
public:
    std::function<void()> onClick;
    std::vector<std::string> items;
    int index = -1;

    int ListCount() const override { return static_cast<int>(items.size()); }
    std::string List(int i) const override {
        return i >= 0 && i < ListCount() ? items[static_cast<std::size_t>(i)] : std::string();
    }
    int ListIndex() const override { return index; }
    void SetListIndex(int i) override {
        index = i;
        if (onClick) {
            onClick();
        }
    }
    void AddItem(const std::string& text) override { items.push_back(text); }
    void Clear() override {
        items.clear();
        index = -1;
    }
};

} // namespace quorel::lang
