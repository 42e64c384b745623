#pragma once

// The texts of a program that has no definition dialog (the command line, the Python module):
// the text database of a folder, in the language remembered in the user's settings, loaded as
// the dialog loads it, with its boxes going to the program's own message interface.

#include "errors/ErrorLog.h"
#include "lang/FormLabels.h"
#include "lang/LanguageList.h"
#include "lang/Module1.h"
#include "lang/SettingsStore.h"
#include "util/TextSource.h"

#include <string>
#include <vector>

namespace quorel::lang {

class StandaloneLanguage final : public ILanguageDialog {
public:
    StandaloneLanguage(util::IMessageUi& ui, const std::string& textDatabaseFolder);

    ILabelledForm& Form() override { return m_form; }
    util::IListControl& LanguageList() override { return m_list; }

    // The current language's texts; none when the database could not be read.
    const util::ITextSource& Texts() const;

    // Switches to code and, when remember, remembers it, as choosing it in the dialog's list
    // does. False, with nothing changed, when the database offers no such language.
    bool Switch(const std::string& code, bool remember);
    // The database's language codes, after a Switch.
    const std::vector<std::string>& Languages() const { return m_list.items; }

private:
    util::IMessageUi& m_ui;
    IniSettingsStore m_settings;
    Module1 m_module;
    errors::ErrorLog m_log;
    PlainForm m_form;
    PlainListControl m_list;
};

} // namespace quorel::lang
