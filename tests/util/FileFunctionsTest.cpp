#include "util/FileFunctions.h"
#include "tests/support/RecordingMessageUi.h"
#include "tests/support/ScratchFolder.h"
#include "util/ListControl.h"
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

class PlainList : public IListControl {
public:
    explicit PlainList(std::vector<std::string> items) : m_items(std::move(items)) {}
    int ListCount() const override { return static_cast<int>(m_items.size()); }
    std::string List(int index) const override {
        return m_items.at(static_cast<std::size_t>(index));
    }
    int ListIndex() const override { return m_index; }
    void SetListIndex(int index) override {
        m_index = index;
        ++clicks;
    }
    void AddItem(const std::string& text) override { m_items.push_back(text); }
    void Clear() override { m_items.clear(); }
    int clicks = 0;

private:
    std::vector<std::string> m_items;
    int m_index = -1;
};

TEST(SelectListItemTest, selectsTheFirstEqualEntryOnceAndNothingWithoutAMatch) {
    PlainList list({"fr", "en", "de", "en"});
    EXPECT_EQ(SelectListItem(list, "en"), 1);
    EXPECT_EQ(list.ListIndex(), 1);
    EXPECT_EQ(list.clicks, 1);
    EXPECT_EQ(SelectListItem(list, "EN"), -1);
    EXPECT_EQ(list.ListIndex(), 1);
    EXPECT_EQ(list.clicks, 1);
}

} // namespace
