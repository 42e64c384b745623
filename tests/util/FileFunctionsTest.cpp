#include "util/FileFunctions.h"
#include "tests/support/RecordingMessageUi.h"
#include "tests/support/ScratchFolder.h"
#include "util/MessageUi.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace quorel::util;

class FileFunctionsTest : public ::testing::Test {
protected:
    void SetUp() override { std::ofstream(m_dir / "roads.shp") << "x"; }
    quorel::test::ScratchFolder m_scratch;
    fs::path m_dir{m_scratch.Path()};
};

TEST_F(FileFunctionsTest, findsFilesFoldersAndWildcardMatches) {
    EXPECT_TRUE(FileExists((m_dir / "roads.shp").string()));
    EXPECT_TRUE(FileExists(m_dir.string()));
    EXPECT_TRUE(FileExists((m_dir / "*.shp").string()));
    EXPECT_TRUE(FileExists((m_dir / "ro?ds.*").string()));
    EXPECT_FALSE(FileExists((m_dir / "*.dbf").string()));
    EXPECT_FALSE(FileExists((m_dir / "rivers.shp").string()));
}

TEST_F(FileFunctionsTest, missingFileShowsTheMessageOnlyWhenAsked) {
    RecordingMessageUi ui;
    EXPECT_FALSE(FileExists((m_dir / "rivers.shp").string()));
    EXPECT_FALSE(FileExists((m_dir / "rivers.shp").string(), &ui));
    ASSERT_EQ(ui.boxes.size(), 1u);
    EXPECT_EQ(ui.boxes[0].text, "File does not exist.\r\n" + (m_dir / "rivers.shp").string());
    EXPECT_EQ(ui.boxes[0].icon, MessageIcon::Critical);
    EXPECT_FALSE(ui.boxes[0].title.has_value());
    // An empty path is missing too; its message ends with an empty line.
    EXPECT_FALSE(FileExists("", &ui));
    EXPECT_EQ(ui.boxes.at(1).text, "File does not exist.\r\n");
}

} // namespace
