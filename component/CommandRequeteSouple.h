#pragma once

#include "component/CommandServices.h"
#include "component/common/ComObject.h"
#include "host/api/Events.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quorel::component {

// The command "Critère souple": a button of the host that opens the definition dialog, and
// listens to the document and focus-map events so that its view connection follows the
// focus map. Every member but Mainprog reports its own failures through HandleError.
class clsRequêteSouple final : public com::ICommand,
                               public host::IDocumentEvents,
                               public host::IMapActiveViewEvents,
                               private RefCounted {
public:
    static inline constexpr com::Guid kClsid =
        com::MakeGuid("{D9C05969-8EB1-4B82-8573-3E7798BDE9FF}");
    static inline constexpr const char* kProgId = "Quorel.clsRequêteSouple";
    // The default interface _clsRequêteSouple, whose one member is Mainprog.
    static inline constexpr com::Guid kDefaultInterface =
        com::MakeGuid("{1B7C25CE-A307-4BC8-BA9D-4E4A492AB241}");
    static inline constexpr const char* kModuleName = "clsRequêteSouple";

    clsRequêteSouple();

    using PrimaryInterface = com::ICommand;

    com::HResult QueryInterface(const com::Guid& iid, void** object) override;
    std::uint32_t AddRef() override { return AddRefImpl(); }
    std::uint32_t Release() override { return ReleaseImpl(); }

    // ICommand, under the names the host's command interface gives its members.
    bool Enabled() override { return ICommand_Enabled(); }
    bool Checked() override { return ICommand_Checked(); }
    std::string Name() override { return ICommand_Name(); }
    std::string Caption() override { return ICommand_Caption(); }
    std::string Tooltip() override { return ICommand_Tooltip(); }
    std::string Message() override { return ICommand_Message(); }
    std::string HelpFile() override { return ICommand_HelpFile(); }
    std::int32_t HelpContextID() override { return ICommand_HelpContextID(); }
    com::Picture BitmapData() override;
    std::int32_t Bitmap() override { return ICommand_Bitmap(); }
    std::string Category() override { return ICommand_Category(); }
    void OnCreate(com::IUnknown* hook) override { ICommand_OnCreate(hook); }
    void OnClick() override { ICommand_OnClick(); }

    bool ICommand_Enabled();
    bool ICommand_Checked();
    std::string ICommand_Name();
    std::string ICommand_Caption();
    std::string ICommand_Tooltip();
    std::string ICommand_Message();
    std::string ICommand_HelpFile();
    std::int32_t ICommand_HelpContextID();
    std::int32_t ICommand_Bitmap();
    std::string ICommand_Category();
    void ICommand_OnCreate(com::IUnknown* hook);
    void ICommand_OnClick();

    // Shows the definition dialog; failures travel to the caller.
    void Mainprog();
    // Mode 0: the document events follow the application's document; mode 1: the view events
    // follow the focus map (or the map control's map). Other modes do nothing.
    void SinkEventHandlers(std::int32_t& mode);

    // DocumentEvents.
    bool ActiveViewChanged() override { return DocumentEvents_ActiveViewChanged(); }
    bool MapsChanged() override { return DocumentEvents_MapsChanged(); }
    bool BeforeCloseDocument() override { return DocumentEvents_BeforeCloseDocument(); }
    bool CloseDocument() override { return DocumentEvents_CloseDocument(); }
    bool NewDocument() override { return DocumentEvents_NewDocument(); }
    bool OpenDocument() override { return DocumentEvents_OpenDocument(); }
    bool DocumentEvents_ActiveViewChanged();
    bool DocumentEvents_MapsChanged();
    bool DocumentEvents_BeforeCloseDocument();
    bool DocumentEvents_CloseDocument();
    bool DocumentEvents_NewDocument();
    bool DocumentEvents_OpenDocument();

    // MapActiveViewEvents: only the focus-map change does something.
    void FocusMapChanged() override { MapActiveViewEvents_FocusMapChanged(); }
    void ContentsChanged() override {}
    void ContentsCleared() override {}
    void ItemAdded(const std::shared_ptr<host::ILayer>&) override {}
    void ItemDeleted(const std::shared_ptr<host::ILayer>&) override {}
    void ItemReordered(const std::shared_ptr<host::ILayer>&, std::int32_t) override {}
    void SelectionChanged() override {}
    void ViewRefreshed() override {}
    void AfterDraw() override {}
    void AfterItemDraw() override {}
    void SpatialReferenceChanged() override {}
    void MapActiveViewEvents_FocusMapChanged();

    // What the command is connected to, for the host's tests.
    bool HasApplicationHook() const { return m_appHook != nullptr; }
    bool HasMapControlHook() const { return m_mapControlHook != nullptr; }
    std::shared_ptr<host::IMxDocument> DocumentSource() const { return m_documentSource; }
    std::shared_ptr<host::IMap> ViewSource() const { return m_viewSourceMap; }

private:
    ~clsRequêteSouple() override;
    void Class_Terminate();

    // Runs body; a failure is reported with the member's name and the value is fallback.
    template <typename Body, typename Result>
    Result Guarded(const char* procName, Body body, Result fallback);
    template <typename Body> void Guarded(const char* procName, Body body);

    void SetDocumentSource(std::shared_ptr<host::IMxDocument> document);
    void SetViewSource(std::shared_ptr<host::IMap> map);

    com::IHostApplication* m_appHook = nullptr;       // holds a reference
    com::IMapControlHook* m_mapControlHook = nullptr; // holds a reference
    bool m_isMapApplication = false;
    std::shared_ptr<host::IMxDocument> m_documentSource;
    host::IDocumentEventSource* m_documentEvents = nullptr;
    std::shared_ptr<host::IMap> m_viewSourceMap;
    host::IMapEventSource* m_viewEvents = nullptr;
};

} // namespace quorel::component
