#include "tests/fzy/FzyTestSupport.h"

#include "host/map/Map.h"
#include "host/memory/MemoryHost.h"
#include "tests/support/Unprivileged.h"

#include <algorithm>

namespace quorel::fzy::test {
namespace {

using host::memory::MemoryApplication;
using host::memory::MemoryFeatureClass;

class FzyValidationTest : public FzyFixture {
protected:
    void SetUp() override {
        FzyFixture::SetUp();
        m_layer = m_app->AddFeatureLayer(Folder(), "PARCELLES", host::kGeometryPolygon,
                                         {{"FID", host::kFieldTypeOID},
                                          {"SLOPE", host::kFieldTypeDouble},
                                          {"FZY_A", host::kFieldTypeDouble},
                                          {"FZY_B", host::kFieldTypeDouble},
                                          {"FZY_C", host::kFieldTypeDouble},
                                          {"FZY_R", host::kFieldTypeDouble},
                                          {"ŁÓDŹ", host::kFieldTypeDouble}});
        m_io.SetApplication(m_app);
    }

    MemoryFeatureClass& Class() {
        return dynamic_cast<MemoryFeatureClass&>(*m_layer->FeatureClass());
    }

    std::optional<int> Validate() {
        Open();
        const auto result = m_io.fzy_io_valid("PARCELLES", Folder());
        return result;
    }

    std::shared_ptr<MemoryApplication> m_app = std::make_shared<MemoryApplication>();
    std::shared_ptr<host::IFeatureLayer> m_layer;
};

TEST_F(FzyValidationTest, vanishedFieldIsDeletedAndCompactedAway) {
    const Bytes a = EncodeNumberEntry(MakeNumber("FZY_A"));
    const Bytes b = EncodeNumberEntry(MakeNumber("FZY_B"));
    const Bytes c = EncodeNumberEntry(MakeNumber("FZY_C"));
    WriteBytes(FzyPath(), MakeFile(0, 3, 0, {a, b, c}));
    Class().DeleteField("FZY_B");
    EXPECT_EQ(Validate(), 1);
    EXPECT_EQ(ReadBytes(FzyPath()), MakeFile(0, 2, 0, {a, c}));
    EXPECT_EQ(m_io.NumberCount(), 2);
    EXPECT_EQ(m_io.DeletedCount(), 0);
    EXPECT_FALSE(fs::exists(m_folder / "PARCELLES.tmp"));
    EXPECT_TRUE(m_ui.boxes.empty());
    // The same handle goes on with the compacted file.
    EXPECT_TRUE(m_io.fzy_io_numberinfo("FZY_C"));
    EXPECT_FALSE(m_io.fzy_io_numberinfo("FZY_B"));
}

TEST_F(FzyValidationTest, anEntryAppendedAfterAFailedCompactionIsReadBack) {
    const Bytes a = EncodeNumberEntry(MakeNumber("FZY_A"));
    const Bytes b = EncodeNumberEntry(MakeNumber("FZY_B"));
    const Bytes c = EncodeNumberEntry(MakeNumber("FZY_C"));
    WriteBytes(FzyPath(), MakeFile(0, 3, 0, {a, b, c}));
    Class().DeleteField("FZY_B");
    // The file stays writable, but its folder takes no compacted copy.
    fs::permissions(FzyPath(), fs::perms::owner_read | fs::perms::owner_write |
                                   fs::perms::group_read | fs::perms::group_write |
                                   fs::perms::others_read | fs::perms::others_write);
    fs::permissions(m_folder, fs::perms::owner_write, fs::perm_options::remove);
    const int status = quorel::test::RunUnprivileged([this] {
        Validate();
        m_io.fzy_io_writenumber("FZY_NEW", "FZY_NEW", 2, 1, 2, 3, 4, "/data/sig", "PARCELLES");
        m_io.fzy_io_close();
        return m_ui.boxes.size() == 1 &&
                       m_ui.boxes[0].text.find(" fzy_io_compressfzy Debug=7") != std::string::npos
                   ? 0
                   : 1;
    });
    fs::permissions(m_folder, fs::perms::owner_write, fs::perm_options::add);
    ASSERT_EQ(status, 0);
    // The marked original stays, and the count takes in the entry appended behind it.
    const Bytes marked = MakeFile(0, 3, 1, {a, WithKind(b, 12), c});
    const Bytes file = ReadBytes(FzyPath());
    ASSERT_GT(file.size(), marked.size());
    EXPECT_EQ(Int16At(file, 4), 4);
    EXPECT_TRUE(std::equal(marked.begin() + 6, marked.end(), file.begin() + 6));
    Open();
    EXPECT_TRUE(m_io.fzy_io_numberinfo("FZY_NEW"));
}

TEST_F(FzyValidationTest, everythingGoneLeavesTheHeaderAndNextAppendGoesToOffset23) {
    WriteBytes(FzyPath(), MakeFile(0, 2, 0,
                                   {EncodeNumberEntry(MakeNumber("OLD1")),
                                    EncodeNumberEntry(MakeNumber("OLD2"))}));
    EXPECT_EQ(Validate(), 1);
    EXPECT_EQ(ReadBytes(FzyPath()), MakeFile(0, 0, 0, {}));
    EXPECT_EQ(m_io.FileStatus(), "Old");
    m_io.fzy_io_writenumber("FZY_A", "FZY_A", 2, 1, 2, 3, 4, "/data/sig", "PARCELLES");
    m_io.fzy_io_close();
    const Bytes file = ReadBytes(FzyPath());
    EXPECT_EQ(Int16At(file, 4), 1);
    EXPECT_EQ(Int16At(file, 23), static_cast<std::int16_t>(file.size() - 23));
    EXPECT_EQ(Int16At(file, 25), kNumberEntryKind);
}

TEST_F(FzyValidationTest, deletedKindsAreSkippedAndDroppedAndRecordsRecounted) {
    const Bytes gone1 = WithKind(EncodeRecordEntry(MakeRecord("FZY_A")), 11);
    const Bytes gone2 = WithKind(EncodeNumberEntry(MakeNumber("NOT_CHECKED")), 12);
    const Bytes record = EncodeRecordEntry(MakeRecord("FZY_R"));
    const Bytes number = EncodeNumberEntry(MakeNumber("FZY_A"));
    FzyHeader header;
    header.Version = 7;
    header.RecordCount = 2;
    header.NumberCount = 2;
    header.DeletedCount = 2;
    header.Reserved.fill(0xAA);
    Bytes file = EncodeHeader(header);
    for (const Bytes* entry : {&gone1, &record, &gone2, &number}) {
        file.insert(file.end(), entry->begin(), entry->end());
    }
    WriteBytes(FzyPath(), file);
    EXPECT_EQ(Validate(), 1);
    header.RecordCount = 1;
    header.NumberCount = 1;
    header.DeletedCount = 0;
    Bytes expected = EncodeHeader(header);
    expected.insert(expected.end(), record.begin(), record.end());
    expected.insert(expected.end(), number.begin(), number.end());
    EXPECT_EQ(ReadBytes(FzyPath()), expected);
    EXPECT_EQ(m_io.RecordCount(), 1);
}

// The box's text: the number, two blanks, the description, the procedure and the step.
TEST_F(FzyValidationTest, corruptFileReportsAndWritesNothing) {
    Bytes entry = EncodeNumberEntry(MakeNumber("FZY_GONE"));
    entry[0] = 0; // zero Length
    entry[1] = 0;
    const Bytes file = MakeFile(0, 1, 0, {entry});
    WriteBytes(FzyPath(), file);
    EXPECT_EQ(Validate(), std::nullopt);
    ASSERT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_EQ(m_ui.boxes[0].text, "59  Bad record length fzy_io_valid Debug=2");
    EXPECT_EQ(ReadBytes(FzyPath()), file);
    EXPECT_FALSE(fs::exists(m_folder / "PARCELLES.tmp"));
}

TEST_F(FzyValidationTest, aCheckAnswersForTheTopLevelLayerOfThatName) {
    // A group holding a layer of another name, which must not be looked into.
    auto group = std::make_shared<host::map::GroupLayer>();
    group->SetName("GROUP");
    auto inner = m_app->Factory().NewFeatureLayer();
    inner->SetName("INNER");
    inner->SetFeatureClass(m_layer->FeatureClass());
    group->Add(inner);
    m_app->Document()->FocusMap()->AddLayer(group);
    for (const auto& [field, layer, expected] :
         {std::tuple{"SLOPE", "PARCELLES", true}, std::tuple{"FZY_X", "PARCELLES", false},
          std::tuple{"slope", "PARCELLES", false}, std::tuple{"FZY_X", "parcelles", true},
          std::tuple{"FZY_X", "INNER", true}, std::tuple{"FZY_X", "RENAMED", true},
          // Names compare as the file's code page holds them; '?' is no wildcard.
          std::tuple{"?ÓD?", "PARCELLES", true}, std::tuple{"?LOPE", "PARCELLES", false}}) {
        EXPECT_EQ(m_io.fzy_io_check(field, layer), expected) << field << " in " << layer;
    }
    EXPECT_TRUE(m_ui.boxes.empty());
}

// No feature layer of that name to look into: the entry stays, and a layer of another kind is
// reported.
TEST_F(FzyValidationTest, withoutAFeatureLayerToCheckTheEntryIsKept) {
    const Bytes file = MakeFile(0, 1, 0, {EncodeNumberEntry(MakeNumber("FZY_A"))});
    const auto map = m_app->Document()->FocusMap();
    map->DeleteLayer(m_layer);
    for (const bool otherKind : {false, true}) {
        if (otherKind) {
            map->AddLayer(std::make_shared<host::memory::MemoryLayer>("PARCELLES"));
        }
        WriteBytes(FzyPath(), file);
        EXPECT_EQ(Validate(), 1);
        m_io.fzy_io_close();
        EXPECT_EQ(ReadBytes(FzyPath()), file);
    }
    ASSERT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_EQ(m_ui.boxes[0].text, "13  Type mismatch fzy_io_check Debug=2");
}

} // namespace
} // namespace quorel::fzy::test
