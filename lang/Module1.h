#pragma once

#include "lang/DataAccess.h"
#include "lang/clsResourceMDB.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quorel::util {
class IMessageUi;
} // namespace quorel::util

namespace quorel::lang {

class ISettingsStore;

inline constexpr const char* kTextDatabaseFile = "text.mdb";
inline constexpr const char* kTextTable = "tblText";
inline constexpr const char* kLanguageInitFailed =
    "The language initialisation failed. The program cannot be used.";
// The site settings name a shared-folder prefix without its replacement.
inline constexpr std::int16_t kTextSharedFolderReplacementMissing = 190;

// Module Module1: the component's text object gResource and the data-access engine it reads
// through. One lives as long as the component; tests make their own.
class Module1 {
public:
    // componentFolder: where "text.mdb" lies (beside the component).
    Module1(util::IMessageUi& ui, ISettingsStore& settings, std::string componentFolder);

    // Replaces gResource by a new text object, opens the text database and loads the remembered
    // language. A missing database leaves gResource without texts after the "File does not
    // exist." box; any other failure shows the language-initialisation box. A shared-folder
    // prefix refused by the site settings is then shown (text 190), in the language loaded.
    void InitLanguage();

    // The text object made by the last InitLanguage; null before the first.
    clsResourceMDB* gResource() const { return m_resource.get(); }

    DataAccess& Dao() { return m_dao; }
    const std::string& ComponentFolder() const { return m_componentFolder; }

private:
    void LoadLanguage();
    void ShowRefusedSharedFolder();

    util::IMessageUi& m_ui;
    ISettingsStore& m_settings;
    std::string m_componentFolder;
    std::string m_refusedSharedFolderPrefix; // set before m_dao, which reads the site settings
    DataAccess m_dao;
    std::unique_ptr<clsResourceMDB> m_resource;
};

} // namespace quorel::lang
