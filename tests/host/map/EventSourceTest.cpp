// The hosts' documents and maps as event sources: which handlers hear what, and when.

#include "host/map/Application.h"
#include "host/memory/MemoryHost.h"
#include "util/Error.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quorel::host::map {
namespace {

// Writes every event it hears to a shared journal, prefixed with its own name.
class Recorder : public IDocumentEvents, public IMapActiveViewEvents {
public:
    Recorder(std::string name, std::vector<std::string>& journal)
        : m_name(std::move(name)), m_journal(journal) {}

    bool ActiveViewChanged() override { return Note("ActiveViewChanged"); }
    bool MapsChanged() override { return Note("MapsChanged"); }
    bool BeforeCloseDocument() override { return Note("BeforeCloseDocument"); }
    bool CloseDocument() override { return Note("CloseDocument"); }
    bool NewDocument() override { return Note("NewDocument"); }
    bool OpenDocument() override { return Note("OpenDocument"); }
    void FocusMapChanged() override { Note("FocusMapChanged"); }
    void ContentsChanged() override { Note("ContentsChanged"); }
    void ContentsCleared() override { Note("ContentsCleared"); }
    void ItemAdded(const std::shared_ptr<ILayer>& item) override {
        Note("ItemAdded " + item->Name());
    }
    void ItemDeleted(const std::shared_ptr<ILayer>& item) override {
        Note("ItemDeleted " + item->Name());
    }
    void ItemReordered(const std::shared_ptr<ILayer>& item, std::int32_t toIndex) override {
        Note("ItemReordered " + item->Name() + " " + std::to_string(toIndex));
    }
    void SelectionChanged() override { Note("SelectionChanged"); }
    void ViewRefreshed() override { Note("ViewRefreshed"); }
    void AfterDraw() override { Note("AfterDraw"); }
    void AfterItemDraw() override { Note("AfterItemDraw"); }
    void SpatialReferenceChanged() override { Note("SpatialReferenceChanged"); }

private:
    bool Note(const std::string& event) {
        m_journal.push_back(m_name + ": " + event);
        return false;
    }

    std::string m_name;
    std::vector<std::string>& m_journal;
};

std::shared_ptr<FeatureLayer> Named(const std::string& name) {
    auto layer = std::make_shared<FeatureLayer>();
    layer->SetName(name);
    return layer;
}

using Journal = std::vector<std::string>;

TEST(MapEventsTest, layersAddedMovedDeletedAndClearedReachOnlyConnectedHandlers) {
    Journal journal;
    Recorder connected("a", journal);
    Recorder gone("b", journal);
    Map map;
    map.Advise(&connected);
    map.Advise(&connected); // a second connection of the same handler is one connection
    map.Advise(&gone);
    map.Unadvise(&gone);
    const auto roads = Named("roads");
    map.AddLayer(roads);
    map.AddLayer(Named("parcels"));
    map.MoveLayer(roads, 5);
    map.DeleteLayer(Named("not in the map"));
    map.DeleteLayer(roads);
    map.ClearLayers();
    EXPECT_EQ(journal,
              (Journal{"a: ItemAdded roads", "a: ItemAdded parcels", "a: ItemReordered roads 1",
                       "a: ItemDeleted roads", "a: ContentsCleared"}));
    EXPECT_EQ(map.LayerCount(), 0);
}

TEST(DocumentEventsTest, focusMapChangeIsHeardByTheOldFocusMapsHandlersOnce) {
    Journal journal;
    Recorder document("doc", journal);
    Recorder view("view", journal);
    MxDocument mx;
    mx.Advise(&document);
    const auto first = std::dynamic_pointer_cast<Map>(mx.FocusMap());
    ASSERT_TRUE(first);
    first->Advise(&view);
    const auto second = std::make_shared<Map>("Second");
    mx.AddMap(second);
    mx.SetFocusMap(second);
    mx.SetFocusMap(second); // already the focus: nothing
    EXPECT_EQ(journal,
              (Journal{"doc: MapsChanged", "view: FocusMapChanged", "doc: ActiveViewChanged"}));
    EXPECT_THROW(mx.SetFocusMap(std::make_shared<Map>()), Error);
}

TEST(DocumentEventsTest, newAndOpenedDocumentsAreAnnouncedToThePreviousDocumentsHandlers) {
    Journal journal;
    Recorder handler("h", journal);
    memory::MemoryApplication app;
    const auto original = std::dynamic_pointer_cast<MxDocument>(app.Document());
    ASSERT_TRUE(original);
    original->Advise(&handler);
    Recorder view("view", journal);
    const auto originalMap = std::dynamic_pointer_cast<Map>(original->FocusMap());
    originalMap->Advise(&view);
    const auto fresh = app.NewDocument();
    EXPECT_EQ(app.Document(), fresh);
    EXPECT_EQ(journal, (Journal{"h: NewDocument", "view: FocusMapChanged"}));
    // The handler follows the active document, as a command's sink does.
    original->Unadvise(&handler);
    fresh->Advise(&handler);
    journal.clear();
    const auto opened = std::make_shared<MxDocument>();
    app.OpenDocument(opened);
    EXPECT_EQ(app.Document(), opened);
    EXPECT_EQ(journal, (Journal{"h: BeforeCloseDocument", "h: CloseDocument", "h: OpenDocument"}));
}

TEST(DocumentEventsTest, aHandlerMayDisconnectItselfWhileItHearsAnEvent) {
    class Leaving final : public Recorder {
    public:
        Leaving(Map& map, Journal& journal) : Recorder("leaving", journal), m_map(map) {}
        void ItemAdded(const std::shared_ptr<ILayer>& item) override {
            Recorder::ItemAdded(item);
            m_map.Unadvise(this);
        }

    private:
        Map& m_map;
    };
    Journal journal;
    Map map;
    Leaving leaving(map, journal);
    map.Advise(&leaving);
    map.AddLayer(Named("one"));
    map.AddLayer(Named("two"));
    EXPECT_EQ(journal, (Journal{"leaving: ItemAdded one"}));
    EXPECT_EQ(map.Handlers().Count(), 0u);
}

} // namespace
} // namespace quorel::host::map
