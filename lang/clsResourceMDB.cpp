#include "lang/clsResourceMDB.h"

#include "lang/ControlTag.h"
#include "lang/DataAccess.h"
#include "lang/SettingsStore.h"
#include "util/Error.h"
#include "util/MessageUi.h"

namespace quorel::lang {
namespace {

constexpr const char* kLoadTitle = "clsResourceMDB-LoadREsData";

Error SubscriptOutOfRange() {
    return Error(error_number::kSubscriptOutOfRange, "clsResourceMDB", "Subscript out of range");
}

// Runs one labelling step; a control that refuses or fails only loses that step.
template <typename Step> void Try(Step&& step) noexcept {
    try {
        step();
    } catch (...) {
    }
}

} // namespace

clsResourceMDB::clsResourceMDB(DataAccess& dao, ISettingsStore& settings)
    : m_dao(dao), m_settings(settings) {}

std::string clsResourceMDB::ResourceString(std::int16_t id) const {
    if (!m_texts || id < 0 || static_cast<std::size_t>(id) >= m_texts->size()) {
        return {};
    }
    return (*m_texts)[static_cast<std::size_t>(id)];
}

void clsResourceMDB::SetFontFromDb(std::int16_t iFontId) {
    if (iFontId > 0) {
        FontId = iFontId;
    }
    if (FontId > 0) {
        if (!m_texts || static_cast<std::size_t>(FontId) >= m_texts->size()) {
            throw SubscriptOutOfRange();
        }
        FontName = (*m_texts)[static_cast<std::size_t>(FontId)];
    } else {
        FontName.clear();
    }
}

void clsResourceMDB::LoadResData() {
    m_texts.reset();
    std::unique_ptr<IRecordset> rs;
    try {
        const std::int16_t max =
            ValueToInt16(m_dao.DAO_MaxValue(m_db.get(), TableName, "id", true), "clsResourceMDB");
        if (max == 0) {
            return;
        }
        if (max < 0) {
            throw SubscriptOutOfRange();
        }
        m_texts.emplace(static_cast<std::size_t>(max) + 1);
        m_dao.DAO_OpenRs(m_db, rs, "", "SELECT id, " + m_languageCode + " FROM " + TableName);
        LoadTexts(rs);
        SetFontFromDb();
    } catch (const Error& e) {
        m_dao.Ui().MessageBox(e.Description(), util::MessageIcon::Critical,
                              std::string(kLoadTitle));
    } catch (const std::exception& e) {
        m_dao.Ui().MessageBox(e.what(), util::MessageIcon::Critical, std::string(kLoadTitle));
    }
    if (rs) {
        Try([&] { rs->Close(); });
    }
}

void clsResourceMDB::LoadTexts(std::unique_ptr<IRecordset>& rs) {
    // Each record lands at its id as the engine returns them; an empty cell or an id outside
    // the table stops the loading there, keeping what came before.
    while (!rs->Eof()) {
        const std::int32_t id = ValueToInt32(rs->Field(0), "clsResourceMDB");
        if (id < 0 || static_cast<std::size_t>(id) >= m_texts->size()) {
            throw SubscriptOutOfRange();
        }
        (*m_texts)[static_cast<std::size_t>(id)] = ValueToText(rs->Field(1), "clsResourceMDB");
        rs->MoveNext();
    }
}

void clsResourceMDB::DbClose() {
    Try([&] { m_db.reset(); });
}

std::string clsResourceMDB::DbOpen(std::string& sDBName, bool /*bShowErrors*/) {
    if (sDBName.empty()) {
        sDBName = DBName;
    } else {
        DBName = sDBName;
    }
    m_dao.DAO_Open(m_db, sDBName, true);
    return {};
}

std::string clsResourceMDB::DbOpen() {
    std::string name;
    return DbOpen(name);
}

void clsResourceMDB::SetControlText(ILabelledControl& control, const std::string& text) {
    Try([&] { control.SetCaption(text); });
    Try([&] { control.SetText(text); });
}

void clsResourceMDB::SetControlFont(ILabelledControl& control, const std::string& fontName) {
    Try([&] { control.SetFontName(fontName); });
}

void clsResourceMDB::LoadFormLanguageText(ILabelledForm& frm, bool bSetFontToFormFont) const {
    Try([&] {
        if (const auto id = TagTextId(frm.Tag())) {
            frm.SetCaption(ResourceString(*id));
        }
    });
    std::vector<ILabelledControl*> controls;
    Try([&] { controls = frm.Controls(); });
    for (ILabelledControl* control : controls) {
        ControlTag tag;
        bool tagRead = false;
        Try([&] {
            tag = ParseControlTag(control->Tag());
            tagRead = true;
        });
        if (!tagRead) {
            continue;
        }
        if (tag.textId > 0) {
            SetControlText(*control, ResourceString(tag.textId));
            if (bSetFontToFormFont) {
                Try([&] { control->UseFormFont(); });
            }
            if (!FontName.empty()) {
                SetControlFont(*control, FontName);
            }
            if (!tag.suffix.empty()) {
                Try([&] {
                    if (const auto caption = control->Caption()) {
                        control->SetCaption(*caption + tag.suffix);
                    }
                });
            }
        }
        if (tag.toolTipId > 0) {
            Try([&] { control->SetToolTipText(ResourceString(tag.toolTipId)); });
        }
    }
}

std::string clsResourceMDB::FillLanguageList(util::IListControl& listLang) {
    const std::string failure = m_dao.DAO_FillFieldList(m_db.get(), TableName, listLang);
    if (!failure.empty()) {
        m_dao.Ui().MessageBox(failure, util::MessageIcon::Critical,
                              std::string("FillLanguageList"));
    }
    return {};
}

void clsResourceMDB::SaveLangSetting() {
    m_settings.SaveSetting(kSettingsApplication, kSettingsSection, kLanguageKey, m_languageCode);
}

} // namespace quorel::lang
