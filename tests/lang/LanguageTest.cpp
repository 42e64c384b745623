#include "lang/LanguageList.h"
#include "lang/Module1.h"

#include "LangFixtures.h"
#include "errors/ErrorLog.h"
#include "lang/SettingsStore.h"
#include "tests/support/RecordingMessageUi.h"
#include "util/MessageUi.h"

#include <gtest/gtest.h>

#include <fstream>

namespace quorel::lang {
namespace {

using testing_support::MakeSqliteDatabase;
using testing_support::ScratchFolder;

// ids 0 to 4; 4 is the dialog's title.
const std::string kTable = std::string(testing_support::kFrEnTable) +
                           "INSERT INTO tblText VALUES (4, 'Définition', 'Definition');";

// The definition dialog as the language logic sees it: its tagged controls and listlang1,
// whose selection runs the click handler as the real list does.
class TestDialog final : public ILanguageDialog {
public:
    TestDialog() {
        form.name = "frm_back";
        form.tag = "4";
        form.caption = "design title";
        form.controls = {
            Control("cmd_sortie", "2", "Sortir", std::nullopt),
            Control("cmd_go", "3", "Calculer", std::nullopt),
            Control("Label1", "2:", "Sortir", std::nullopt),
            Control("Txt_explique", "tt=3", std::nullopt, "explanation"),
            Control("Txt_new_name", "0", std::nullopt, "typed"),
            Control("Frame5", "", "b :", std::nullopt),
        };
    }

    void Wire(Module1& module, errors::ErrorLog& log) {
        list.onClick = [this, &module, &log] {
            ++clicks;
            listlang1_Click(*this, module.gResource(), log);
        };
    }

    ILabelledForm& Form() override { return form; }
    util::IListControl& LanguageList() override { return list; }

    PlainControl& At(const std::string& name) { return *form.Find(name); }

    PlainForm form;
    PlainListControl list;
    int clicks = 0;

private:
    static PlainControl Control(const std::string& name, const std::string& tag,
                                std::optional<std::string> caption,
                                std::optional<std::string> text) {
        PlainControl control;
        control.name = name;
        control.tag = tag;
        control.caption = std::move(caption);
        control.text = std::move(text);
        control.toolTipText = "";
        control.fontName = "Tahoma";
        return control;
    }
};

class LanguageTest : public testing::Test {
protected:
    std::string DatabasePath() const { return m_scratch.File("text.mdb"); }
    void MakeDatabase(const std::string& sql) { MakeSqliteDatabase(DatabasePath(), sql); }

    std::string RememberedLanguage() const {
        return m_settings.GetSetting("Ombrel_Brumalis", "params", "lang", "(none)");
    }

    // The dialog's load: InitLanguage, then the texts on the form, then the language list.
    void LoadDialog() {
        m_module.InitLanguage();
        if (m_module.gResource() != nullptr) {
            m_module.gResource()->LoadFormLanguageText(m_dialog.form);
        }
        m_dialog.Wire(m_module, m_log);
        InitLanguageList(m_dialog, m_module.gResource());
    }

    clsResourceMDB& Texts() { return *m_module.gResource(); }

    ScratchFolder m_scratch;
    IniSettingsStore m_settings{m_scratch.Dir() / "config"};
    util::RecordingMessageUi m_ui;
    Module1 m_module{m_ui, m_settings, m_scratch.Path()};
    errors::ErrorLog m_log{m_ui, errors::ComponentIdentity{m_scratch.Path(), "Quorel", "10.3.2"}};
    TestDialog m_dialog;
};

TEST_F(LanguageTest, loadsFrenchByDefaultListsLanguagesAndRemembersTheChoice) {
    MakeDatabase("CREATE TABLE tblText (fr TEXT, en TEXT, id INTEGER);"
                 "INSERT INTO tblText VALUES ('Titre', 'Title', 4);"
                 "INSERT INTO tblText VALUES ('Quitter', 'Quit', 2);");
    LoadDialog();
    EXPECT_TRUE(m_ui.boxes.empty());
    EXPECT_EQ(m_dialog.list.items, (std::vector<std::string>{"fr", "en"}));
    EXPECT_EQ(m_dialog.list.index, 0);
    EXPECT_EQ(m_dialog.clicks, 1);
    EXPECT_EQ(RememberedLanguage(), "fr");
    EXPECT_EQ(Texts().LanguageCode(), "fr");
    EXPECT_EQ(m_dialog.form.caption, "Titre");
    EXPECT_EQ(m_dialog.At("cmd_sortie").caption, " Quitter");
    EXPECT_EQ(m_dialog.At("cmd_go").caption, " "); // text 3 has no row
    EXPECT_EQ(m_dialog.At("Label1").caption, "Quitter :");
}

TEST_F(LanguageTest, choosingAnotherLanguageReloadsRelabelsAndRemembersIt) {
    MakeDatabase(kTable);
    LoadDialog();
    ASSERT_EQ(Texts().ResourceString(2), "Sortir");
    EXPECT_EQ(Texts().FontName, "Tahoma");
    m_dialog.list.SetListIndex(1);
    EXPECT_TRUE(m_ui.boxes.empty());
    EXPECT_EQ(Texts().LanguageCode(), "en");
    EXPECT_EQ(Texts().ResourceString(2), "Exit");
    EXPECT_EQ(Texts().FontName, "Arial");
    EXPECT_EQ(RememberedLanguage(), "en");
    EXPECT_EQ(m_dialog.form.caption, "Definition");
    EXPECT_EQ(m_dialog.At("cmd_sortie").caption, " Exit");
    EXPECT_EQ(m_dialog.At("cmd_go").caption, " Compute");
    EXPECT_EQ(m_dialog.At("cmd_go").fontName, "Arial");
    EXPECT_EQ(m_dialog.At("Label1").caption, "Exit :");
    EXPECT_EQ(m_dialog.At("Txt_explique").toolTipText, "Compute");
    EXPECT_EQ(m_dialog.At("Txt_explique").text, "explanation");
    EXPECT_EQ(m_dialog.At("Txt_new_name").text, "typed");
    EXPECT_EQ(m_dialog.At("Frame5").caption, "b :");
    EXPECT_EQ(m_dialog.At("Frame5").fontName, "Tahoma");
    // The next opening of the dialog starts in the remembered language.
    TestDialog again;
    m_dialog.form = again.form;
    m_dialog.list.Clear();
    LoadDialog();
    EXPECT_EQ(Texts().LanguageCode(), "en");
    EXPECT_EQ(m_dialog.list.index, 1);
    EXPECT_EQ(m_dialog.At("cmd_go").caption, " Compute");
}

TEST_F(LanguageTest, choosingTheCurrentLanguageReappliesWithoutReloading) {
    MakeDatabase(kTable);
    LoadDialog();
    MakeSqliteDatabase(DatabasePath(), "UPDATE tblText SET fr = 'changé' WHERE id = 2;");
    m_settings.SaveSetting("Ombrel_Brumalis", "params", "lang", "xx");
    m_dialog.list.SetListIndex(0);
    EXPECT_EQ(Texts().ResourceString(2), "Sortir");
    EXPECT_EQ(RememberedLanguage(), "fr");
    EXPECT_EQ(m_dialog.At("cmd_sortie").caption, " Sortir");
}

TEST_F(LanguageTest, rememberedLanguageWithoutAColumnLeavesEmptyTextsUntilOneIsChosen) {
    MakeDatabase(kTable);
    m_settings.SaveSetting("Ombrel_Brumalis", "params", "lang", "de");
    LoadDialog();
    ASSERT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_EQ(m_ui.boxes[0].title, "clsResourceMDB-LoadREsData");
    EXPECT_EQ(m_ui.boxes[0].icon, util::MessageIcon::Critical);
    const std::string head = "Error SQL:SELECT id, de FROM tblText\r\non database\r\n\r\nError: ";
    EXPECT_EQ(m_ui.boxes[0].text.substr(0, head.size()), head);
    ASSERT_TRUE(Texts().Texts().has_value());
    EXPECT_EQ(Texts().Texts()->size(), 5u);
    // Ids outside the table read empty as well.
    for (const std::int16_t id : {-1, 0, 1, 2, 3, 4, 5, 32767}) {
        EXPECT_EQ(Texts().ResourceString(id), "") << id;
    }
    EXPECT_EQ(m_dialog.form.caption, "");
    EXPECT_EQ(m_dialog.list.index, -1);
    EXPECT_EQ(RememberedLanguage(), "de");
    m_dialog.list.SetListIndex(1);
    EXPECT_EQ(Texts().ResourceString(3), "Compute");
    EXPECT_EQ(RememberedLanguage(), "en");
}

// A faulty table shows the load box; what was read before the fault is kept (the texts as
// allocated, or none).
TEST_F(LanguageTest, aFaultyTableShowsTheLoadBoxAndKeepsWhatCameBefore) {
    using Loaded = std::vector<std::string>;
    const std::string table = "CREATE TABLE tblText (id INTEGER, fr TEXT);";
    for (const auto& [sql, description, texts] :
         {std::tuple{"INSERT INTO tblText VALUES (0, 'a'); INSERT INTO tblText VALUES (1, '');"
                     "INSERT INTO tblText VALUES (3, NULL); INSERT INTO tblText VALUES (2, 'c');",
                     "Invalid use of Null", Loaded{"a", "", "", ""}},
          std::tuple{
              "INSERT INTO tblText VALUES (2, 'a'); INSERT INTO tblText VALUES (40000, 'b');",
              "Overflow", Loaded{}},
          std::tuple{"", "Invalid use of Null", Loaded{}},
          std::tuple{"INSERT INTO tblText VALUES (1, ''); INSERT INTO tblText VALUES (2, 'b');"
                     "INSERT INTO tblText VALUES (-1, 'c');",
                     "Subscript out of range", Loaded{"", "", "b"}}}) {
        SCOPED_TRACE(description);
        std::filesystem::remove(DatabasePath());
        MakeDatabase(table + sql);
        m_ui.boxes.clear();
        Module1 module{m_ui, m_settings, m_scratch.Path()};
        module.InitLanguage();
        ASSERT_EQ(m_ui.boxes.size(), 1u);
        EXPECT_EQ(m_ui.boxes[0].title, "clsResourceMDB-LoadREsData");
        EXPECT_EQ(m_ui.boxes[0].text, description);
        EXPECT_EQ(module.gResource()->Texts().value_or(Loaded{}), texts);
        EXPECT_EQ(module.gResource()->Texts().has_value(), !texts.empty());
    }
}

TEST_F(LanguageTest, onlyTextZeroLoadsNothing) {
    // The highest id 0 means "no texts"; no box either.
    MakeDatabase(
        "CREATE TABLE tblText (id INTEGER, fr TEXT); INSERT INTO tblText VALUES (0, 'a');");
    m_module.InitLanguage();
    EXPECT_TRUE(m_ui.boxes.empty());
    EXPECT_FALSE(Texts().Texts().has_value());
}

TEST_F(LanguageTest, missingDatabaseShowsTheFileBoxThenTheListBoxAndEmptyCaptions) {
    LoadDialog();
    ASSERT_EQ(m_ui.boxes.size(), 2u);
    EXPECT_EQ(m_ui.boxes[0].text, "File does not exist.\r\n" + DatabasePath());
    EXPECT_EQ(m_ui.boxes[0].icon, util::MessageIcon::Critical);
    EXPECT_EQ(m_ui.boxes[1].title, "FillLanguageList");
    EXPECT_EQ(m_ui.boxes[1].icon, util::MessageIcon::Critical);
    EXPECT_FALSE(m_ui.boxes[1].text.empty());
    EXPECT_TRUE(m_dialog.list.items.empty());
    EXPECT_EQ(m_dialog.form.caption, "");
    EXPECT_EQ(m_dialog.At("cmd_go").caption, "");
    EXPECT_EQ(m_dialog.At("Label1").caption, " :");
    EXPECT_EQ(m_dialog.At("Frame5").caption, "b :");
    EXPECT_EQ(RememberedLanguage(), "(none)");
}

TEST_F(LanguageTest, unopenableDatabaseShowsTheInitialisationBox) {
    std::ofstream(DatabasePath()) << "SQLite format 3 is what this file claims, but it lies.";
    LoadDialog();
    ASSERT_EQ(m_ui.boxes.size(), 2u);
    EXPECT_EQ(m_ui.boxes[0].text,
              "The language initialisation failed. The program cannot be used.");
    EXPECT_EQ(m_ui.boxes[0].title, std::nullopt);
    EXPECT_EQ(m_ui.boxes[1].title, "FillLanguageList");
    EXPECT_EQ(m_dialog.form.caption, "");
}

TEST_F(LanguageTest, sharedFolderPrefixWithoutReplacementIsRefusedInTheUsersLanguage) {
    MakeDatabase("CREATE TABLE tblText (id INTEGER, fr TEXT, en TEXT);"
                 "INSERT INTO tblText VALUES (190, 'Préfixe refusé', 'Prefix refused');");
    // The prefix names the component's own folder: stripping it would lose the database.
    m_settings.SaveSetting("Ombrel_Brumalis", "site", "SharedFolderPrefix", m_scratch.Path());
    Module1 module(m_ui, m_settings, m_scratch.Path());
    module.InitLanguage();
    ASSERT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_EQ(m_ui.boxes[0].text, "Préfixe refusé\r\nSharedFolderPrefix=" + m_scratch.Path());
    EXPECT_EQ(m_ui.boxes[0].icon, util::MessageIcon::Critical);
    EXPECT_EQ(module.gResource()->ResourceString(190), "Préfixe refusé");
}

TEST_F(LanguageTest, failingToRememberTheLanguageIsReportedAndLogged) {
    MakeDatabase(kTable);
    LoadDialog();
    m_ui.boxes.clear();
    // A file where the settings folder should be makes the store unwritable.
    std::filesystem::remove_all(m_scratch.Dir() / "config");
    std::ofstream(m_scratch.Dir() / "config") << "in the way";
    m_dialog.list.SetListIndex(1);
    ASSERT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_NE(m_ui.boxes[0].text.find("listLang1_Click"), std::string::npos);
    EXPECT_NE(m_ui.boxes[0].text.find("frm_back"), std::string::npos);
    EXPECT_TRUE(std::filesystem::exists(m_scratch.Dir() / "Quorel.log"));
    // The new language was loaded and applied before the failure.
    EXPECT_EQ(m_dialog.At("cmd_go").caption, "Compute");
}

// Text 1 names the controls' font; where it is empty the controls keep theirs.
TEST_F(LanguageTest, fontFollowsTextOneAndIsLeftAloneWhenEmpty) {
    MakeDatabase("CREATE TABLE tblText (id INTEGER, fr TEXT, en TEXT);"
                 "INSERT INTO tblText VALUES (1, 'DejaVu Sans', '');"
                 "INSERT INTO tblText VALUES (2, 'Sortir', 'Exit');");
    LoadDialog();
    EXPECT_EQ(Texts().FontName, "DejaVu Sans");
    EXPECT_EQ(m_dialog.At("cmd_sortie").fontName, "DejaVu Sans");
    EXPECT_EQ(m_dialog.At("Txt_explique").fontName, "Tahoma"); // tooltip only
    m_dialog.form = TestDialog().form;
    m_dialog.list.SetListIndex(1);
    EXPECT_EQ(Texts().FontName, "");
    EXPECT_EQ(m_dialog.At("cmd_sortie").caption, " Exit");
    EXPECT_EQ(m_dialog.At("cmd_sortie").fontName, "Tahoma");
}

} // namespace
} // namespace quorel::lang
