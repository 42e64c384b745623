// Only what other tests lean on without noticing a fault: the metadata file's checks edit the map
// through FocusMemoryMap() and read it back through the document, and an empty map that still
// held its layer would leave their "keeps the entry" cases passing for the wrong reason.

#include "host/memory/MemoryHost.h"
#include "util/Error.h"

#include <gtest/gtest.h>

namespace quorel::host::memory {
namespace {

TEST(MemoryHostTest, documentsFocusMapSeesLayersAppendedAndDeleted) {
    MemoryApplication app;
    const auto parcels =
        app.AddFeatureLayer("/data", "PARCELLES", kGeometryPolygon, {{"SLOPE", kFieldTypeDouble}});
    app.FocusMemoryMap()->AppendLayer(std::make_shared<MemoryGroupLayer>("GROUP"));
    const auto map = app.Document()->FocusMap();
    ASSERT_EQ(map->LayerCount(), 2);
    EXPECT_EQ(map->Layer(0), parcels);

    app.FocusMemoryMap()->DeleteLayer(parcels);
    ASSERT_EQ(map->LayerCount(), 1);
    EXPECT_EQ(map->Layer(0)->Name(), "GROUP");
}

// The run's name checks rely on the double refusing, as a table would, a name over its limit.
TEST(MemoryHostTest, namesOverASetByteLimitAreRefused) {
    MemoryApplication app;
    const auto layer =
        app.AddFeatureLayer("/data", "PARCELLES", kGeometryPolygon, {{"SLOPE", kFieldTypeDouble}});
    auto& featureClass = dynamic_cast<MemoryFeatureClass&>(*layer->FeatureClass());
    auto field = app.Factory().NewField();
    field->SetName("ÉTÉ");
    field->SetType(kFieldTypeDouble);
    EXPECT_FALSE(featureClass.FieldNameByteLimit());
    featureClass.LimitFieldNames(4);
    EXPECT_EQ(featureClass.FieldNameByteLength("ÉTÉ"), 5u);
    EXPECT_THROW(featureClass.AddField(*field), Error);
}

} // namespace
} // namespace quorel::host::memory
