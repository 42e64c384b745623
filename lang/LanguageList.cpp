#include "lang/LanguageList.h"

#include "errors/ErrorLog.h"
#include "lang/SettingsStore.h"
#include "lang/clsResourceMDB.h"
#include "util/Error.h"

namespace quorel::lang {
namespace {

// The dialog shows its two main buttons with one blank before the caption.
void PrefixBlank(ILabelledForm& form, const char* controlName) {
    for (ILabelledControl* control : form.Controls()) {
        if (control->Name() == controlName) {
            if (const auto caption = control->Caption()) {
                control->SetCaption(" " + *caption);
            }
        }
    }
}

clsResourceMDB& Require(clsResourceMDB* resource) {
    if (resource == nullptr) {
        throw Error(error_number::kObjectVariableNotSet, "listLang1_Click",
                    "Object variable or With block variable not set");
    }
    return *resource;
}

} // namespace

void InitLanguageList(ILanguageDialog& dialog, clsResourceMDB* resource) noexcept {
    try {
        clsResourceMDB& texts = Require(resource);
        texts.FillLanguageList(dialog.LanguageList());
        util::SelectListItem(dialog.LanguageList(), texts.LanguageCode());
    } catch (...) {
        // The dialog loads without a language list.
    }
}

void listlang1_Click(ILanguageDialog& dialog, clsResourceMDB* resource,
                     errors::ErrorLog& log) noexcept {
    std::string moduleName = "frm_back";
    try {
        moduleName = dialog.Form().Name();
    } catch (...) {
        // The report then names the definition dialog.
    }
    std::int32_t line = 0;
    try {
        line = 1;
        util::IListControl& list = dialog.LanguageList();
        if (list.ListCount() == 0) {
            return;
        }
        line = 2;
        clsResourceMDB& texts = Require(resource);
        const std::string chosen = list.List(list.ListIndex());
        if (chosen != texts.LanguageCode()) {
            texts.LanguageCode(chosen.empty() ? kDefaultLanguage : chosen);
            texts.LoadResData();
        }
        line = 3;
        texts.LoadFormLanguageText(dialog.Form(), false);
        line = 4;
        texts.SaveLangSetting();
    } catch (const Error& e) {
        log.ReportError(e, moduleName, "listLang1_Click", true, line, "", true);
        return;
    } catch (const std::exception& e) {
        log.ReportError(Error(error_number::kHostFailure, "listLang1_Click", e.what()), moduleName,
                        "listLang1_Click", true, line, "", true);
        return;
    }
    try {
        PrefixBlank(dialog.Form(), "cmd_sortie");
        PrefixBlank(dialog.Form(), "cmd_go");
    } catch (...) {
        // A missing button keeps the others as they are.
    }
}

} // namespace quorel::lang
