// Map documents written and read back: layers, names, order, groups, flags and the focus map.

#include "apps/quorel-host/MapDocumentFile.h"
#include "host/shapefile/Application.h"
#include "source/Application.h"
#include "source/OpenSource.h"
#include "tests/host/postgis/TestPostgis.h"
#include "tests/support/ScratchFolder.h"
#include "util/Error.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace quorel::host_app {
namespace {

using quorel::test::Thrown;

namespace fs = std::filesystem;

class MapDocumentFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(m_folder / "data");
        for (const char* ext : {".shp", ".shx", ".dbf", ".prj", ".cpg"}) {
            fs::copy_file(fs::path(QUOREL_SOURCE_DIR) / "samples" / (std::string("parcels") + ext),
                          m_folder / "data" / (std::string("parcels") + ext));
        }
    }

    std::string Write(const std::string& text) const {
        const fs::path path = m_folder / "doc.qmap";
        std::ofstream(path, std::ios::binary) << text;
        return path.string();
    }

    // Saves the document of `app`, which must hold `line`, and reads it back: its first layer.
    std::shared_ptr<host::IFeatureLayer> RoundTrip(source::Application& app,
                                                   const std::string& line) {
        const std::string path = (m_folder / "saved.qmap").string();
        SaveMapDocument(*std::dynamic_pointer_cast<host::map::MxDocument>(app.Document()), path);
        const std::string text = test::ReadBytes(path);
        EXPECT_NE(text.find(line), std::string::npos) << text;
        m_read = LoadMapDocument(m_other, path);
        return std::dynamic_pointer_cast<host::IFeatureLayer>(m_read->FocusMap()->Layer(0));
    }

    test::ScratchFolder m_scratch;
    fs::path m_folder{m_scratch.Path()};
    source::Application m_other;
    std::shared_ptr<host::map::MxDocument> m_read;
};

TEST_F(MapDocumentFileTest, aSavedDocumentOpensWithTheSameMapsLayersGroupsAndFocus) {
    host::shapefile::Application app;
    const auto shp = (m_folder / "data" / "parcels.shp").string();
    auto document = std::dynamic_pointer_cast<host::map::MxDocument>(app.Document());
    auto top = app.AddShapefileLayer(shp);
    top->SetName("Parcelles à l'étude");
    auto group = std::make_shared<host::map::GroupLayer>();
    group->SetName("Référence");
    auto inner = app.AddShapefileLayer(shp);
    document->FocusMap()->DeleteLayer(inner);
    inner->SetName("inner");
    inner->SetSelectable(false);
    group->Add(inner);
    document->FocusMap()->AddLayer(group);
    auto second = std::make_shared<host::map::Map>("Second map");
    document->AddMap(second);
    document->SetFocusMap(second);
    const std::string path = (m_folder / "saved.qmap").string();
    SaveMapDocument(*document, path);
    const std::string text = test::ReadBytes(path);
    // Relative to the document, so the folder can move as a whole.
    EXPECT_NE(text.find("\tdata/parcels.shp\t"), std::string::npos) << text;
    host::shapefile::Application other;
    const auto read = LoadMapDocument(other, path);
    ASSERT_EQ(read->Maps().size(), 2u);
    EXPECT_EQ(read->FocusMap(), read->Maps()[1]);
    EXPECT_EQ(read->FocusMap()->Name(), "Second map");
    const auto& first = *read->Maps()[0];
    EXPECT_EQ(first.Name(), "Layers");
    ASSERT_EQ(first.LayerCount(), 2);
    const auto readTop = std::dynamic_pointer_cast<host::IFeatureLayer>(first.Layer(0));
    ASSERT_TRUE(readTop);
    EXPECT_EQ(readTop->Name(), "Parcelles à l'étude");
    EXPECT_TRUE(readTop->Selectable());
    EXPECT_EQ(readTop->FeatureClass()->AliasName(), "parcels");
    const auto readGroup = std::dynamic_pointer_cast<host::IGroupLayer>(first.Layer(1));
    ASSERT_TRUE(readGroup);
    EXPECT_EQ(readGroup->Name(), "Référence");
    ASSERT_EQ(readGroup->Count(), 1);
    const auto readInner = std::dynamic_pointer_cast<host::IFeatureLayer>(readGroup->Layer(0));
    ASSERT_TRUE(readInner);
    EXPECT_EQ(readInner->Name(), "inner");
    EXPECT_FALSE(readInner->Selectable());
}

TEST_F(MapDocumentFileTest, aGeoPackageLayerKeepsItsTable) {
    const std::string gpkg = (m_folder / "data" / "two.gpkg").string();
    const std::string shp = (m_folder / "data" / "parcels.shp").string();
    ASSERT_EQ(std::system(("ogr2ogr -f GPKG " + gpkg + " " + shp +
                           " -nln roads && ogr2ogr -update " + gpkg + " " + shp + " -nln zones")
                              .c_str()),
              0);
    source::Application app;
    source::OpenSourceLayer(app, gpkg, "zones")->SetSelectable(false);
    const auto layer = RoundTrip(app, "layer\tzones\tdata/two.gpkg\tfixed\tzones\n");
    ASSERT_TRUE(layer);
    EXPECT_EQ(layer->FeatureClass()->AliasName(), "zones");
    EXPECT_EQ(layer->FeatureClass()->Workspace()->PathName(), gpkg);
    EXPECT_FALSE(layer->Selectable());
}

TEST_F(MapDocumentFileTest, aPostgisLayerKeepsItsConnectionAndTable) {
    const std::string source = testing::MakePostgisTable("roads", {"WIDTH"}, {{1.0}, {2.0}});
    source::Application app;
    source::OpenSourceLayer(app, source, "roads")->SetName("main roads");
    const auto layer = RoundTrip(app, "layer\tmain roads\t" + source + "\tselectable\troads\n");
    ASSERT_TRUE(layer);
    EXPECT_EQ(layer->Name(), "main roads");
    EXPECT_EQ(layer->FeatureClass()->Workspace()->PathName(), source);
    EXPECT_EQ(layer->FeatureClass()->AliasName(), "roads");
}

TEST_F(MapDocumentFileTest, aFaultyDocumentIsRefusedNamingTheLine) {
    for (const auto& [text, says] :
         {std::pair{"", "line 0: not a map document"},
          std::pair{"quorel-map\t2\n", "line 1: not a map document"},
          std::pair{"quorel-map\t1\nlayer\ta\tdata/parcels.shp\tselectable\n",
                    "line 2: unexpected line"},
          std::pair{"quorel-map\t1\nmap\tm\n# note\nlayer\ta\tdata/none.shp\tselectable\n",
                    "line 4:"},
          std::pair{"quorel-map\t1\nmap\tm\nlayer\ta\tdata/none.gpkg\tfixed\tzones\n",
                    "line 3: File not found"},
          std::pair{"quorel-map\t1\nmap\tm\ngroup\tg\n", "a group without its end"},
          std::pair{"quorel-map\t1\nmap\tm\nend\n", "line 3: unexpected"}}) {
        host::shapefile::Application app;
        const std::string path = Write(text);
        const Error e = Thrown([&] { LoadMapDocument(app, path); });
        EXPECT_NE(e.Description().find(says), std::string::npos) << e.Description();
    }
}

} // namespace
} // namespace quorel::host_app
