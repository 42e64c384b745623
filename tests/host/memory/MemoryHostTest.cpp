// Only what other tests lean on without noticing a fault: the metadata file's checks edit the map
// through FocusMemoryMap() and read it back through the document, and an empty map that still
// held its layer would leave their "keeps the entry" cases passing for the wrong reason.

#include "host/memory/MemoryHost.h"

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

} // namespace
} // namespace quorel::host::memory
