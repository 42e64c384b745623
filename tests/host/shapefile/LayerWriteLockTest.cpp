#include "host/shapefile/Application.h"
#include "tests/host/shapefile/TestShapefiles.h"
#include "tests/support/LockError.h"
#include "tests/support/Unprivileged.h"
#include "util/Error.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace quorel::host {
namespace {

namespace fs = std::filesystem;
using testing::ScratchFolder;

class ShapefileWriteLockTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::MakeShapefile(m_folder.Path(), "parcels", {{"POP", 'N', 9, 0}},
                               {{1.0}, {2.0}, {3.0}});
        m_app->SetWriteLockWait(std::chrono::milliseconds(0));
        m_dbf = m_folder.File("parcels.dbf");
    }

    // The lock is free again: nothing kept it after a refusal.
    bool Free() const {
        const int fd = ::open(m_folder.File("parcels.shp").c_str(), O_RDONLY | O_CLOEXEC);
        const bool free = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
        ::close(fd);
        return free;
    }

    ScratchFolder m_folder;
    std::shared_ptr<shapefile::Application> m_app = std::make_shared<shapefile::Application>();
    std::string m_dbf;
};

// A shapefile whose parts disagree is damaged: a rewrite would lose records. (A table whose
// header undercounts its records is the run's test.) The index's length in 16-bit words says
// 100 bytes and two records of 8, of three.
TEST_F(ShapefileWriteLockTest, aDamagedShapefileIsRefusedBeforeAnythingIsWrittenAndTheLockFreed) {
    const std::string shx = m_folder.File("parcels.shx");
    std::string bytes = testing::ReadBytes(shx);
    bytes[27] = 58;
    { std::ofstream(shx, std::ios::binary | std::ios::trunc) << bytes; }
    const std::string before = testing::ReadBytes(m_dbf);
    EXPECT_EQ(test::LockError(*m_app, m_folder.Path(), "parcels"), error_number::kHostLayerDamaged);
    EXPECT_EQ(testing::ReadBytes(m_dbf), before);
    EXPECT_TRUE(Free());
}

// What cannot be written in place is refused even when the folder would take a new table; root
// may write anything, so the lock is asked for by an unprivileged child.
TEST_F(ShapefileWriteLockTest, aReadOnlyTableOrFolderIsRefusedBeforeAnythingIsWritten) {
    for (const auto& [table, folder] :
         {std::pair<mode_t, mode_t>{0444, 0777}, std::pair<mode_t, mode_t>{0666, 0555}}) {
        ASSERT_EQ(::chmod(m_dbf.c_str(), table), 0);
        ASSERT_EQ(::chmod(m_folder.Path().c_str(), folder), 0);
        const int status = quorel::test::RunUnprivileged([this] {
            return test::LockError(*m_app, m_folder.Path(), "parcels") ==
                           error_number::kHostLayerReadOnly
                       ? 0
                       : 1;
        });
        ::chmod(m_folder.Path().c_str(), 0700);
        EXPECT_EQ(status, 0) << std::oct << table << " in " << folder;
    }
}

TEST_F(ShapefileWriteLockTest, staleTemporariesGoOnlyOnceTheLockIsHeld) {
    const std::string stale = m_dbf + ".quorel-Ab3xZ9";
    std::ofstream(stale) << "killed run";
    auto held = m_app->LockLayerForWriting(m_folder.Path(), "parcels");
    EXPECT_FALSE(fs::exists(stale));
    // A live writer's temporary looks the same: a refused writer leaves it.
    const std::string live = m_dbf + ".quorel-Cd4yW8";
    std::ofstream(live) << "live run";
    EXPECT_EQ(test::LockError(*m_app, m_folder.Path(), "parcels"), error_number::kHostLayerLocked);
    EXPECT_TRUE(fs::exists(live));
}

} // namespace
} // namespace quorel::host
