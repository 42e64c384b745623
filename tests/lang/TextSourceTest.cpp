#include "lang/TextSource.h"

#include "LangFixtures.h"
#include "lang/Module1.h"
#include "lang/SettingsStore.h"
#include "tests/support/RecordingMessageUi.h"
#include "util/Error.h"
#include "util/MessageUi.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace quorel::lang {
namespace {

using quorel::test::Thrown;

using testing_support::ScratchFolder;

const std::string kSourceFile = std::string(QUOREL_SOURCE_DIR) + "/lang/texts.tsv";

TextSourceTable ReadShippedSource() {
    std::ifstream in(kSourceFile, std::ios::binary);
    return ReadTextSource(in, kSourceFile);
}

// The shipped texts, built into a database and loaded as the dialog loads them.
class ShippedTextsTest : public testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        WriteTextDatabase(ReadShippedSource(), m_scratch.File("text.mdb"));
        m_settings.SaveSetting(kSettingsApplication, kSettingsSection, kLanguageKey, GetParam());
        m_module.InitLanguage();
        ASSERT_TRUE(m_ui.boxes.empty());
    }

    ScratchFolder m_scratch;
    IniSettingsStore m_settings{m_scratch.Path()};
    util::RecordingMessageUi m_ui;
    Module1 m_module{m_ui, m_settings, m_scratch.Path()};
};

TEST_P(ShippedTextsTest, everyUsedIdHasAText) {
    const clsResourceMDB& texts = *m_module.gResource();
    for (std::int16_t id : RequiredTextIds()) {
        if (id != kFontTextId) {
            EXPECT_NE(texts.ResourceString(id), "") << "text " << id;
        }
    }
    // 132 is followed by the values, as in "...:5:2:100000000000000:1E+15".
    EXPECT_NE(texts.ResourceString(132).back(), ':');
}

INSTANTIATE_TEST_SUITE_P(Languages, ShippedTextsTest, testing::Values("fr", "en"));

TEST(ShippedTextsFrenchTest, controlsKeepTheirDesignCaptions) {
    const TextSourceTable table = ReadShippedSource();
    ASSERT_EQ(table.languages, (std::vector<std::string>{"fr", "en"}));
    const std::vector<std::pair<std::int16_t, std::string>> captions = {
        {116, "Quitter"},
        {118, "Sortir"},
        {119, "Définition d'un critère de classification souple"},
        {120, "Shape contenant les données"},
        {121, "Attributs disponibles"},
        {122, "Alias de l'attribut en sortie"},
        {123, "Ajouter shape"},
        {124, "Méta données"},
        {125, "Stats"},
        {127, "Calculer"},
        {147, "Résultats"},
        {160, "Métadonnées d'un critère souple"},
        {161, "Statistiques du champ"},
    };
    for (const auto& [id, caption] : captions) {
        EXPECT_EQ(table.texts.at(id).at(0), caption) << "text " << id;
    }
}

std::string RequiredRows(const std::string& except = "") {
    std::string rows;
    for (std::int16_t id : RequiredTextIds()) {
        if (std::to_string(id) != except) {
            rows += std::to_string(id) + "\tt" + std::to_string(id) + "\n";
        }
    }
    return rows;
}

TEST(TextSourceTest, aFaultySourceIsRefusedWithTheLine) {
    const std::vector<std::pair<std::string, const char*>> faults = {
        {"", "no header"},
        {"key\tfr\n", "texts.tsv:1"},
        {"id\tfr ch\n", "language code"},
        {"id\tfr\ten\n5\tx\n", "texts.tsv:2"},
        {"# c\nid\tfr\n32768\tx\n", "texts.tsv:3"},
        {"id\tfr\n5\tx\n5\ty\n", "given twice"},
        {"id\tfr\n5\t\n", "empty"},
        {"id\tfr\n5\ta\\q\n", "escape"},
        {"id\tfr\n" + RequiredRows("133"), "133"}};
    for (const auto& [text, fault] : faults) {
        std::istringstream in(text);
        const Error e = Thrown([&] { ReadTextSource(in, "texts.tsv"); });
        EXPECT_NE(e.Description().find(fault), std::string::npos) << e.Description();
    }
}

TEST(TextSourceTest, readsEscapesAndAllowsAnEmptyFontText) {
    std::istringstream in("# comment\r\nid\tfr\r\n\r\n1\t\r\n500\tline\\r\\none\\ttab\\\\\r\n" +
                          RequiredRows("1"));
    const TextSourceTable table = ReadTextSource(in, "texts.tsv");
    EXPECT_EQ(table.texts.at(1).at(0), "");
    EXPECT_EQ(table.texts.at(500).at(0), "line\r\none\ttab\\");
}

} // namespace
} // namespace quorel::lang
