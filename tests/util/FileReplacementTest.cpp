#include "util/FileReplacement.h"
#include "tests/support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace quorel::util {
namespace {

namespace fs = std::filesystem;

class FileReplacementTest : public testing::Test {
protected:
    std::string Path(const std::string& name) const { return m_scratch.File(name); }
    std::set<std::string> Names() const {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(m_folder)) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    test::ScratchFolder m_scratch;
    fs::path m_folder{m_scratch.Path()};
};

TEST_F(FileReplacementTest, replacesTheTargetKeepingItsModeAndOwnerAndNothingElse) {
    test::WriteBytes(Path("t.dbf"), "old");
    ASSERT_EQ(::chmod(Path("t.dbf").c_str(), 0640), 0);
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(Path("t.dbf").c_str(), 65534, 65534), 0);
    }
    // Names that an earlier writer with fixed scratch names would have used: never touched.
    for (const char* other : {"t.dbf.tmp", "t.tmp", "t.dbf.quorel-tmp"}) {
        test::WriteBytes(Path(other), "mine");
    }
    ReplaceFile(Path("t.dbf"), "new content", "Test");
    EXPECT_EQ(test::ReadBytes(Path("t.dbf")), "new content");
    for (const char* other : {"t.dbf.tmp", "t.tmp", "t.dbf.quorel-tmp"}) {
        EXPECT_EQ(test::ReadBytes(Path(other)), "mine") << other;
    }
    EXPECT_EQ(Names().size(), 4u);
    struct stat status {};
    ASSERT_EQ(::stat(Path("t.dbf").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    EXPECT_EQ(status.st_uid, root ? 65534u : ::geteuid());
}

TEST_F(FileReplacementTest, aNewFileTakesTheModeLessTheUmask) {
    const mode_t previous = ::umask(027);
    ReplaceFile(Path("new.ini"), "x", "Test", 0666);
    ::umask(previous);
    struct stat status {};
    ASSERT_EQ(::stat(Path("new.ini").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(FileReplacementTest, aReplacementNotCommittedLeavesTheTargetAndNoTemporary) {
    test::WriteBytes(Path("t.fzy"), "old");
    {
        FileReplacement replacement(Path("t.fzy"), "Test");
        replacement.Write("half");
        EXPECT_TRUE(fs::exists(replacement.TemporaryPath()));
    }
    EXPECT_EQ(test::ReadBytes(Path("t.fzy")), "old");
    EXPECT_EQ(Names(), std::set<std::string>{"t.fzy"});
}

TEST_F(FileReplacementTest, twoReplacementsAtOnceHaveTemporariesOfTheirOwn) {
    FileReplacement first(Path("t.fzy"), "Test");
    FileReplacement second(Path("t.fzy"), "Test");
    EXPECT_NE(first.TemporaryPath(), second.TemporaryPath());
    first.Write("first");
    second.Write("second");
    first.Commit();
    second.Commit();
    EXPECT_EQ(test::ReadBytes(Path("t.fzy")), "second");
    EXPECT_EQ(Names(), std::set<std::string>{"t.fzy"});
}

TEST_F(FileReplacementTest, staleTemporariesOfTheTargetGoAndNothingElse) {
    const std::vector<std::string> stale = {"t.dbf.quorel-Ab3xZ9", "t.dbf.quorel-000000"};
    const std::vector<std::string> kept = {"t.dbf",
                                           "t.dbf.quorel-Ab3xZ",
                                           "t.dbf.quorel-Ab3x-9",
                                           "u.dbf.quorel-Ab3xZ9",
                                           "t.dbf.quorel-Ab3xZ9x",
                                           "t.fzy.quorel-Ab3xZ9"};
    for (const auto& name : stale) {
        test::WriteBytes(Path(name), "x");
    }
    for (const auto& name : kept) {
        test::WriteBytes(Path(name), "x");
    }
    EXPECT_EQ(RemoveStaleReplacements(Path("t.dbf")), 2);
    EXPECT_EQ(Names(), std::set<std::string>(kept.begin(), kept.end()));
}

} // namespace
} // namespace quorel::util
