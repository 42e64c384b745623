#include "lang/SettingsStore.h"

#include "LangFixtures.h"
#include "util/Error.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

namespace quorel::lang {
namespace {

using testing_support::ScratchFolder;

using quorel::test::ReadBytes;

TEST(SettingsStoreTest, aMissingSettingGivesTheDefaultASavedOneIsReadBackAndReplacedInPlace) {
    ScratchFolder scratch;
    IniSettingsStore store(scratch.Dir() / "new" / "folder");
    EXPECT_EQ(store.GetSetting("Ombrel_Brumalis", "params", "lang", "fr"), "fr");
    EXPECT_EQ(store.GetSetting("Ombrel_Brumalis", "params", "lang"), "");
    store.SaveSetting("Ombrel_Brumalis", "params", "lang", "en");
    EXPECT_EQ(store.GetSetting("Ombrel_Brumalis", "params", "lang", "fr"), "en");
    store.SaveSetting("Ombrel_Brumalis", "params", "lang", "fr");
    EXPECT_EQ(ReadBytes(store.FileFor("Ombrel_Brumalis")), "[params]\nlang=fr\n");
    // Sections and applications are separate.
    EXPECT_EQ(store.GetSetting("Ombrel_Brumalis", "other", "lang", "x"), "x");
    EXPECT_EQ(store.GetSetting("Other_App", "params", "lang", "x"), "x");
}

TEST(SettingsStoreTest, keepsOtherSectionsKeysAndComments) {
    ScratchFolder scratch;
    IniSettingsStore store(scratch.Path());
    std::ofstream(store.FileFor("Ombrel_Brumalis")) << "; site settings\n"
                                                       "[site]\n"
                                                       "SharedFolderPrefix = //srv/gis\n"
                                                       "\n"
                                                       "[params]\n"
                                                       "other=1\n"
                                                       "\n";
    store.SaveSetting("Ombrel_Brumalis", "params", "lang", "en");
    store.SaveSetting("Ombrel_Brumalis", "site", "SharedFolderReplacement", "/mnt/gis");
    EXPECT_EQ(ReadBytes(store.FileFor("Ombrel_Brumalis")), "; site settings\n"
                                                           "[site]\n"
                                                           "SharedFolderPrefix = //srv/gis\n"
                                                           "SharedFolderReplacement=/mnt/gis\n"
                                                           "\n"
                                                           "[params]\n"
                                                           "other=1\n"
                                                           "lang=en\n"
                                                           "\n");
    EXPECT_EQ(store.GetSetting("Ombrel_Brumalis", "site", "SharedFolderPrefix"), "//srv/gis");
}

TEST(SettingsStoreTest, writesLeaveNoTemporaryFileAndAFailedOneRaises) {
    ScratchFolder scratch;
    IniSettingsStore store(scratch.Path());
    // A folder where the settings file should be: the final rename fails, whoever runs this.
    store.SaveSetting("Ombrel_Brumalis", "params", "lang", "en");
    std::filesystem::remove(store.FileFor("Ombrel_Brumalis"));
    std::filesystem::create_directories(store.FileFor("Ombrel_Brumalis") / "in_the_way");
    EXPECT_THROW(store.SaveSetting("Ombrel_Brumalis", "params", "lang", "fr"), Error);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(scratch.Path())) {
        names.push_back(entry.path().filename().string());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"Ombrel_Brumalis.ini"}));
}

TEST(SettingsStoreTest, refusesValuesThatWouldBreakTheFile) {
    ScratchFolder scratch;
    IniSettingsStore store(scratch.Path());
    EXPECT_THROW(store.SaveSetting("Ombrel_Brumalis", "params", "lang", "en\n[x]"), Error);
    EXPECT_THROW(store.SaveSetting("Ombrel_Brumalis", "params", "a=b", "en"), Error);
}

TEST(SettingsStoreTest, userFolderFollowsXdgConfigHomeElseHome) {
    const char* oldXdg = std::getenv("XDG_CONFIG_HOME");
    const std::string savedXdg = oldXdg != nullptr ? oldXdg : "";
    const char* oldHome = std::getenv("HOME");
    const std::string savedHome = oldHome != nullptr ? oldHome : "";
    setenv("XDG_CONFIG_HOME", "/tmp/quorel-xdg", 1);
    EXPECT_EQ(IniSettingsStore::UserConfigFolder(), "/tmp/quorel-xdg");
    setenv("XDG_CONFIG_HOME", "relative/ignored", 1);
    setenv("HOME", "/home/analyst", 1);
    EXPECT_EQ(IniSettingsStore::UserConfigFolder(), "/home/analyst/.config");
    unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(IniSettingsStore::UserConfigFolder(), "/home/analyst/.config");
    setenv("HOME", savedHome.c_str(), 1);
    if (oldXdg != nullptr) {
        setenv("XDG_CONFIG_HOME", savedXdg.c_str(), 1);
    }
}

} // namespace
} // namespace quorel::lang
