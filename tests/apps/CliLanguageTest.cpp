#include "RunProgram.h"

#include "lang/TextSource.h"
#include "tests/host/shapefile/TestShapefiles.h"
#include "tests/support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using quorel::test::ProgramResult;
using quorel::test::ReadBytes;
using quorel::test::RunProgram;
using quorel::test::ScratchFolder;

// The shipped texts, as the database beside the program holds them.
const quorel::lang::TextSourceTable& ShippedTexts() {
    static const quorel::lang::TextSourceTable table = [] {
        const std::string file = std::string(QUOREL_SOURCE_DIR) + "/lang/texts.tsv";
        std::ifstream in(file, std::ios::binary);
        return quorel::lang::ReadTextSource(in, file);
    }();
    return table;
}

std::string Text(std::int16_t id, const std::string& language) {
    const auto& table = ShippedTexts();
    for (std::size_t i = 0; i < table.languages.size(); ++i) {
        if (table.languages[i] == language) {
            return table.texts.at(id).at(i);
        }
    }
    return "(no such language)";
}

// Each test remembers its language in a settings folder of its own.
class CliLanguageTest : public ::testing::Test {
protected:
    ProgramResult Quorel(const std::vector<std::string>& arguments) {
        return RunProgram(QUOREL_CLI, arguments, {},
                          {{"XDG_CONFIG_HOME", m_config.string()}, {"LC_ALL", "C"}});
    }

    std::string Settings() const { return ReadBytes(m_config / "Ombrel_Brumalis.ini"); }

    ScratchFolder m_scratch;
    fs::path m_config{m_scratch.Path()};
};

const std::vector<std::string> kOutOfOrder = {"script", "--kind", "3", "-a", "5", "-b", "2"};
const std::string kValues = ":5:2:100000000000000:1E+15\n";

TEST_F(CliLanguageTest, refusalIsInFrenchUntilAnotherLanguageIsChosen) {
    const auto french = Quorel(kOutOfOrder);
    EXPECT_EQ(french.status, 2);
    EXPECT_EQ(french.err, Text(132, "fr") + kValues);
    EXPECT_EQ(Settings(), "");
    std::vector<std::string> english = kOutOfOrder;
    english.insert(english.begin() + 3, {"--lang", "en"});
    const auto switched = Quorel(english);
    EXPECT_EQ(switched.status, 2);
    EXPECT_EQ(switched.err, Text(132, "en") + kValues);
    EXPECT_EQ(Settings(), "[params]\nlang=en\n");
    // Remembered for the next run; "--lang fr" alone switches back.
    EXPECT_EQ(Quorel(kOutOfOrder).err, Text(132, "en") + kValues);
    const auto back = Quorel({"--lang=fr"});
    EXPECT_EQ(back.status, 0);
    EXPECT_EQ(back.err, "");
    EXPECT_EQ(Quorel(kOutOfOrder).err, Text(132, "fr") + kValues);
}

TEST_F(CliLanguageTest, unknownLanguageIsAUsageErrorAndIsNotRemembered) {
    const auto r = Quorel({"--lang", "de", "script", "--kind", "1", "--field", "F"});
    EXPECT_EQ(r.status, 64);
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find("de"), std::string::npos);
    EXPECT_NE(r.err.find("fr, en"), std::string::npos);
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
    EXPECT_EQ(Settings(), "");
    EXPECT_EQ(Quorel({"script", "--lang"}).status, 64);
}

// Help in the language asked for is not remembered; a command is, even when it goes wrong.
TEST_F(CliLanguageTest, usageMessagesAndHelpFollowTheLanguage) {
    const auto french = Quorel({"frobnicate"});
    EXPECT_EQ(french.status, 64);
    EXPECT_EQ(french.err, "quorel: commande inconnue « frobnicate » (voir quorel --help)\n");
    const auto help = Quorel({"--lang", "en", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind(Text(200, "en") + "\n", 0), 0u) << help.out;
    EXPECT_EQ(Quorel({"script", "-h", "--lang=en"}).status, 0);
    EXPECT_EQ(Settings(), "");
    const auto english = Quorel({"--lang", "en", "membership", "--kind", "1", "-z", "3"});
    EXPECT_EQ(english.status, 64);
    EXPECT_EQ(english.err, "quorel membership: unknown option -z\n");
    EXPECT_EQ(Quorel({"--help"}).out.rfind(Text(200, "en") + "\n", 0), 0u);
}

TEST_F(CliLanguageTest, runNamesTheFieldItAddedOnStandardOutput) {
    quorel::testing::MakeShapefile(m_scratch.Path(), "parcels", {{"DISTANCE", 'N', 9, 2}},
                                   {{150.0}, {620.5}});
    const std::string shapefile = m_scratch.File("parcels.shp");
    const std::vector<std::string> run = {"--lang", "en", "run", shapefile, "--field", "DISTANCE",
                                          "--kind", "3",  "-a",  "100",     "-b",      "900"};
    ASSERT_EQ(Quorel(run).status, 0);
    // FZY_DISTANCE is cut to 10 characters, then numbered since FZY_DISTAN exists.
    const auto second = Quorel(run);
    EXPECT_EQ(second.status, 0) << second.err;
    std::string expected = Text(240, "en") + "\n";
    expected.replace(expected.find("%1"), 2, "FZY_DISTA1");
    expected.replace(expected.find("%2"), 2, shapefile);
    EXPECT_EQ(second.out, expected);
}

} // namespace
