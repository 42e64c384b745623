#include "apps/quorel/CliTexts.h"

#include "apps/quorel/Args.h"
#include "apps/quorel/Installation.h"
#include "errors/ErrorLog.h"
#include "lang/LanguageList.h"
#include "lang/Module1.h"
#include "lang/SettingsStore.h"
#include "util/ListControl.h"
#include "util/MessageUi.h"

namespace quorel::cli {
namespace {

// The command line's counterpart of the definition dialog: no controls to label, a language
// list in memory, boxes on standard error, texts beside the program.
class CliLanguage final : public lang::ILanguageDialog {
public:
    CliLanguage()
        : m_settings(lang::IniSettingsStore::UserConfigFolder()),
          m_module(m_ui, m_settings, TextDatabaseFolder()), m_log(m_ui) {
        m_form.name = "quorel";
        m_module.InitLanguage();
    }

    lang::ILabelledForm& Form() override { return m_form; }
    util::IListControl& LanguageList() override { return m_list; }

    const util::ITextSource& Texts() const {
        static const NoTexts none;
        const lang::clsResourceMDB* resource = m_module.gResource();
        return resource != nullptr ? static_cast<const util::ITextSource&>(*resource) : none;
    }

    void Switch(const std::string& code, bool remember) {
        m_list.onClick = nullptr;
        m_list.Clear();
        lang::clsResourceMDB* resource = m_module.gResource();
        if (resource != nullptr) {
            resource->FillLanguageList(m_list);
        }
        if (remember) {
            m_list.onClick = [this] { lang::listlang1_Click(*this, m_module.gResource(), m_log); };
        }
        if (util::SelectListItem(m_list, code) < 0) {
            std::string available;
            for (const std::string& item : m_list.items) {
                available += (available.empty() ? "" : ", ") + item;
            }
            throw UsageError(CliMessage(cli_text::kUnknownLanguage,
                                        "unknown language '%1' (available: %2)",
                                        {code, available}));
        }
        // Only the click remembers: otherwise load the texts and leave the settings alone.
        if (!remember && resource->LanguageCode() != code) {
            resource->LanguageCode(code);
            resource->LoadResData();
        }
    }

private:
    class NoTexts final : public util::ITextSource {
    public:
        std::string ResourceString(std::int16_t /*id*/) const override { return {}; }
    };

    util::ConsoleMessageUi m_ui;
    lang::IniSettingsStore m_settings;
    lang::Module1 m_module;
    errors::ErrorLog m_log;
    lang::PlainForm m_form;
    lang::PlainListControl m_list;
};

CliLanguage& Language() {
    static CliLanguage language;
    return language;
}

} // namespace

const util::ITextSource& CliTexts() {
    return Language().Texts();
}

void SwitchCliLanguage(const std::string& code, bool remember) {
    Language().Switch(code, remember);
}

std::string CliMessage(std::int16_t id, const char* fallback,
                       const std::vector<std::string>& arguments) {
    std::string pattern = CliTexts().ResourceString(id);
    if (pattern.empty()) {
        pattern = fallback;
    }
    std::string message;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        const char next = i + 1 < pattern.size() ? pattern[i + 1] : '\0';
        if (pattern[i] == '%' && next >= '1' && next <= '9') {
            const auto index = static_cast<std::size_t>(next - '1');
            message += index < arguments.size() ? arguments[index] : std::string();
            ++i;
        } else {
            message += pattern[i];
        }
    }
    return message;
}

} // namespace quorel::cli
