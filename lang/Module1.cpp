#include "lang/Module1.h"

#include "lang/SettingsStore.h"
#include "util/FileFunctions.h"
#include "util/MessageUi.h"

#include <exception>

namespace quorel::lang {

Module1::Module1(util::IMessageUi& ui, ISettingsStore& settings, std::string componentFolder)
    : m_ui(ui), m_settings(settings), m_componentFolder(std::move(componentFolder)),
      m_dao(ui, SharedFolderRewriteFromSettings(settings)) {}

void Module1::InitLanguage() {
    try {
        m_resource.reset();
        m_resource = std::make_unique<clsResourceMDB>(m_dao, m_settings);
        const std::string code = m_settings.GetSetting(kSettingsApplication, kSettingsSection,
                                                       kLanguageKey, kDefaultLanguage);
        std::string folder = m_componentFolder;
        if (!folder.empty() && folder.back() != '/') {
            folder += '/';
        }
        m_resource->DBName = folder + kTextDatabaseFile;
        if (!util::FileExists(m_resource->DBName, &m_ui)) {
            return;
        }
        m_resource->TableName = kTextTable;
        m_resource->LanguageCode(code);
        m_resource->DbOpen();
        m_resource->FontId = 1;
        m_resource->LoadResData();
    } catch (const std::exception&) {
        m_ui.MessageBox(kLanguageInitFailed, util::MessageIcon::Critical);
    }
}

} // namespace quorel::lang
