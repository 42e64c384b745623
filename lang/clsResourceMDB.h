#pragma once

#include "lang/Database.h"
#include "lang/FormLabels.h"
#include "util/TextSource.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quorel::util {
class IListControl;
} // namespace quorel::util

namespace quorel::lang {

class DataAccess;
class ISettingsStore;

// The texts of the current language and the text database they come from. Lookups never fail:
// before any load, and for any id without a text, they give the empty string.
class clsResourceMDB final : public util::ITextSource {
public:
    clsResourceMDB(DataAccess& dao, ISettingsStore& settings);

    std::string DBName;    // path of the text database
    std::string TableName; // its table of texts
    std::int16_t FontId = 0;
    std::string FontName; // empty: forms keep their own fonts

    void LanguageCode(const std::string& vData) { m_languageCode = vData; }
    const std::string& LanguageCode() const { return m_languageCode; }

    std::string ResourceString(std::int16_t id) const override;

    // Loads the current language's texts; failures show the "clsResourceMDB-LoadREsData" box.
    void LoadResData();

    // With iFontId above 0 it becomes FontId; FontName then follows text FontId (empty for 0).
    // A FontId outside the texts raises error 9.
    void SetFontFromDb(std::int16_t iFontId = 0);

    // Closes the database; never fails.
    void DbClose();

    void db(std::shared_ptr<IDatabase> database) { m_db = std::move(database); }
    const std::shared_ptr<IDatabase>& db() const { return m_db; }

    // Opens sDBName (empty: DBName, handed back in sDBName) into db; raises error 1000 when the
    // database is missing or cannot be opened. Returns the empty string.
    std::string DbOpen(std::string& sDBName, bool bShowErrors = false);
    std::string DbOpen();

    // Puts the texts on a form's controls by their Tags; never fails towards the caller.
    void LoadFormLanguageText(ILabelledForm& frm, bool bSetFontToFormFont = false) const;

    // Fills listLang with the languages of the table; a failure shows the "FillLanguageList"
    // box. Returns the empty string.
    std::string FillLanguageList(util::IListControl& listLang);

    // Remembers LanguageCode in the user's settings.
    void SaveLangSetting();

    // The text table: nothing before a load (or after a load failed before allocating), else
    // one text per id from 0 to the highest id.
    const std::optional<std::vector<std::string>>& Texts() const { return m_texts; }

private:
    static void SetControlText(ILabelledControl& control, const std::string& text);
    static void SetControlFont(ILabelledControl& control, const std::string& fontName);
    void LoadTexts(std::unique_ptr<IRecordset>& rs);

    DataAccess& m_dao;
    ISettingsStore& m_settings;
    std::string m_languageCode;
    std::shared_ptr<IDatabase> m_db;
    std::optional<std::vector<std::string>> m_texts;
};

} // namespace quorel::lang
