#include "lang/StandaloneLanguage.h"

#include "util/ListControl.h"

namespace quorel::lang {
namespace {

class NoTexts final : public util::ITextSource {
public:
    std::string ResourceString(std::int16_t /*id*/) const override { return {}; }
};

} // namespace

StandaloneLanguage::StandaloneLanguage(util::IMessageUi& ui, const std::string& textDatabaseFolder)
    : m_ui(ui), m_settings(IniSettingsStore::UserConfigFolder()),
      m_module(m_ui, m_settings, textDatabaseFolder), m_log(m_ui) {
    m_form.name = "quorel";
    m_module.InitLanguage();
}

const util::ITextSource& StandaloneLanguage::Texts() const {
    static const NoTexts none;
    const clsResourceMDB* resource = m_module.gResource();
    return resource != nullptr ? static_cast<const util::ITextSource&>(*resource) : none;
}

bool StandaloneLanguage::Switch(const std::string& code, bool remember) {
    m_list.onClick = nullptr;
    m_list.Clear();
    clsResourceMDB* resource = m_module.gResource();
    if (resource != nullptr) {
        resource->FillLanguageList(m_list);
    }
    if (remember) {
        m_list.onClick = [this] { listlang1_Click(*this, m_module.gResource(), m_log); };
    }
    if (util::SelectListItem(m_list, code) < 0) {
        return false;
    }
    // Only the click remembers: otherwise load the texts and leave the settings alone.
    if (!remember && resource->LanguageCode() != code) {
        resource->LanguageCode(code);
        resource->LoadResData();
    }
    return true;
}

} // namespace quorel::lang
