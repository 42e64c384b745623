#include "errors/Component.h"
#include "errors/ErrorLog.h"
#include "tests/errors/ComponentProbe.h"
#include "tests/support/RecordingMessageUi.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace quorel::errors {
namespace {

namespace fs = std::filesystem;

TEST(ComponentTest, staticallyLinkedComponentIsTheExecutable) {
    const fs::path exe = fs::canonical("/proc/self/exe");
    const ComponentIdentity& self = OwnComponent();
    EXPECT_EQ(self.folder, exe.parent_path().string());
    EXPECT_EQ(self.name, exe.stem().string());
}

TEST(ComponentTest, sharedLibraryComponentIsTheLibraryFile) {
    const fs::path library = fs::canonical(QUOREL_PROBE_FILE);
    const ComponentIdentity identity = ProbeComponentIdentity();
    EXPECT_EQ(identity.folder, library.parent_path().string());
    EXPECT_EQ(identity.name, library.stem().string());
    EXPECT_NE(identity.name, fs::canonical("/proc/self/exe").stem().string());
}

TEST(ComponentTest, errorLogLiesBesideTheComponent) {
    util::RecordingMessageUi ui;
    ErrorLog log(ui);
    const fs::path exe = fs::canonical("/proc/self/exe");
    EXPECT_EQ(log.ErrorLogFile(), exe.parent_path().string() + "/" + exe.stem().string() + ".log");
}

} // namespace
} // namespace quorel::errors
