#include "component/registry/ClassRegistry.h"
#include "tests/support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>

namespace {

namespace fs = std::filesystem;
using quorel::component::ClassRegistry;

class ClassRegistryTest : public ::testing::Test {
protected:
    std::string Content() const { return quorel::test::ReadBytes(m_path); }

    quorel::test::ScratchFolder m_scratch;
    fs::path m_dir{m_scratch.Path()};
    std::string m_path{(m_dir / "quorel" / "classes.ini").string()};
};

// Ids are kept in capitals whatever their case (keeping other components' entries across
// saves is the component tests'); the registry's folder holds nothing else after a save.
TEST_F(ClassRegistryTest, idsAreMatchedWhateverTheirCaseAndSavesLeaveOnlyTheRegistry) {
    {
        ClassRegistry registry(m_path);
        registry.RegisterClass("{d9c05969-8eb1-4b82-8573-3e7798bde9ff}", "Quorel.clsRequêteSouple",
                               "/opt/Quorel.so");
        registry.RegisterTypeLib("{B9FAE490-258D-4CFC-8A44-B0D7C470A193}", "Quorel", "1.0",
                                 "/opt/Quorel.so");
        registry.Save();
    }
    ClassRegistry registry(m_path);
    const auto ours = registry.FindByProgId("Quorel.clsRequêteSouple");
    ASSERT_TRUE(ours);
    EXPECT_EQ(ours->clsid, "{D9C05969-8EB1-4B82-8573-3E7798BDE9FF}");
    EXPECT_EQ(registry.TypeLibPath("{b9fae490-258d-4cfc-8a44-b0d7c470a193}"), "/opt/Quorel.so");
    registry.UnregisterClass("{D9C05969-8EB1-4B82-8573-3E7798BDE9FF}");
    registry.UnregisterTypeLib("{B9FAE490-258D-4CFC-8A44-B0D7C470A193}");
    registry.Save();
    EXPECT_EQ(Content().find("Quorel"), std::string::npos);
    EXPECT_EQ(std::distance(fs::directory_iterator(m_dir / "quorel"), fs::directory_iterator()), 1);
}

TEST_F(ClassRegistryTest, aProgIdNamesOneClass) {
    ClassRegistry registry(m_path);
    registry.RegisterClass("{11111111-2222-3333-4444-555555555555}", "Tool", "/a.so");
    registry.RegisterClass("{66666666-2222-3333-4444-555555555555}", "Tool", "/b.so");
    EXPECT_EQ(registry.FindByProgId("Tool")->path, "/b.so");
    EXPECT_FALSE(registry.FindByClsid("{11111111-2222-3333-4444-555555555555}"));
    EXPECT_EQ(registry.Classes().size(), 1u);
}

} // namespace
