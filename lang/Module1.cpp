#include "lang/Module1.h"

#include "lang/SettingsStore.h"
#include "util/FileFunctions.h"
#include "util/MessageUi.h"

#include <exception>

namespace quorel::lang {
namespace {

constexpr const char* kSharedFolderReplacementMissingText =
    "Section [site] of the settings sets SharedFolderPrefix without SharedFolderReplacement (the "
    "folder where the share is mounted): the prefix is ignored and paths are used as they are.";

// The site's rewrite; a refused prefix is kept in refusedPrefix, to be shown once texts are
// loaded, and paths are then used unchanged.
std::optional<SharedFolderRewrite> SiteRewrite(const ISettingsStore& settings,
                                               std::string& refusedPrefix) {
    try {
        return SharedFolderRewriteFromSettings(settings);
    } catch (const SharedFolderReplacementMissing& refused) {
        refusedPrefix = refused.Prefix();
        return std::nullopt;
    }
}

} // namespace

Module1::Module1(util::IMessageUi& ui, ISettingsStore& settings, std::string componentFolder)
    : m_ui(ui), m_settings(settings), m_componentFolder(std::move(componentFolder)),
      m_dao(ui, SiteRewrite(settings, m_refusedSharedFolderPrefix)) {}

void Module1::InitLanguage() {
    LoadLanguage();
    ShowRefusedSharedFolder();
}

void Module1::ShowRefusedSharedFolder() {
    if (m_refusedSharedFolderPrefix.empty()) {
        return;
    }
    std::string text =
        m_resource ? m_resource->ResourceString(kTextSharedFolderReplacementMissing) : "";
    if (text.empty()) {
        text = kSharedFolderReplacementMissingText;
    }
    m_ui.MessageBox(text + "\r\n" + kSharedFolderPrefixKey + "=" + m_refusedSharedFolderPrefix,
                    util::MessageIcon::Critical);
}

void Module1::LoadLanguage() {
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
