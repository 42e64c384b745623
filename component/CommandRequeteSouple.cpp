#include "component/CommandRequeteSouple.h"

#include "component/common/MemberGuard.h"
#include "quorel/Version.h"
#include "util/Error.h"

#include <exception>
#include <string>

namespace quorel::component {
namespace {

constexpr const char* kName = "OMBREL_Critère souple 9.2 a 10.3VML";
constexpr const char* kCaptionText = "Critère souple V9.2  à 10.3VML";
constexpr const char* kTooltipText = "Critère souple V9.2 à 10.3VML";
constexpr const char* kCategory = "OMBREL";

// Asks an object for an interface; nullptr when it has none.
template <typename Interface> Interface* Query(com::IUnknown* object, const com::Guid& iid) {
    void* result = nullptr;
    if (object == nullptr || !com::Succeeded(object->QueryInterface(iid, &result))) {
        return nullptr;
    }
    return static_cast<Interface*>(result);
}

} // namespace

clsRequêteSouple::clsRequêteSouple() = default;

clsRequêteSouple::~clsRequêteSouple() {
    Class_Terminate();
}

com::HResult clsRequêteSouple::QueryInterface(const com::Guid& iid, void** object) {
    if (object == nullptr) {
        return com::kPointer;
    }
    *object = nullptr;
    if (iid == com::IID_IUnknown || iid == com::IID_ICommand || iid == kDefaultInterface) {
        return Hand(static_cast<com::ICommand*>(this), object);
    }
    return com::kNoInterface;
}

template <typename Body, typename Result>
Result clsRequêteSouple::Guarded(const char* procName, Body body, Result fallback) {
    return GuardedMember(Services().Ui(), kModuleName, procName, body, fallback);
}

template <typename Body> void clsRequêteSouple::Guarded(const char* procName, Body body) {
    Guarded(
        procName,
        [&] {
            body();
            return 0;
        },
        0);
}

bool clsRequêteSouple::ICommand_Enabled() {
    return Guarded(
        "ICommand_Enabled", [] { return true; }, false);
}

bool clsRequêteSouple::ICommand_Checked() {
    return Guarded(
        "ICommand_Checked", [] { return false; }, false);
}

std::string clsRequêteSouple::ICommand_Name() {
    return Guarded(
        "ICommand_Name", [] { return std::string(kName); }, std::string());
}

std::string clsRequêteSouple::ICommand_Caption() {
    return Guarded(
        "ICommand_Caption", [] { return std::to_string(kVersionRevision) + kCaptionText; },
        std::string());
}

std::string clsRequêteSouple::ICommand_Tooltip() {
    return Guarded(
        "ICommand_Tooltip", [] { return std::to_string(kVersionRevision) + kTooltipText; },
        std::string());
}

std::string clsRequêteSouple::ICommand_Message() {
    return Guarded(
        "ICommand_Message", [] { return std::to_string(kVersionRevision) + kTooltipText; },
        std::string());
}

std::string clsRequêteSouple::ICommand_HelpFile() {
    return Guarded(
        "ICommand_HelpFile", [] { return std::string(); }, std::string());
}

std::int32_t clsRequêteSouple::ICommand_HelpContextID() {
    return Guarded(
        "ICommand_HelpContextID", [] { return std::int32_t{0}; }, std::int32_t{0});
}

com::Picture clsRequêteSouple::BitmapData() {
    return Guarded(
        "ICommand_Bitmap", [] { return Services().CommandPicture(); }, com::Picture{});
}

std::int32_t clsRequêteSouple::ICommand_Bitmap() {
    return Guarded(
        "ICommand_Bitmap", [] { return Services().CommandPictureHandle(); }, std::int32_t{0});
}

std::string clsRequêteSouple::ICommand_Category() {
    return Guarded(
        "ICommand_Category", [] { return std::string(kCategory); }, std::string());
}

void clsRequêteSouple::ICommand_OnCreate(com::IUnknown* hook) {
    Guarded("ICommand_OnCreate", [&] {
        if (auto* app = Query<com::IHostApplication>(hook, com::IID_IApplication)) {
            m_appHook = app;
            Services().SetApplication(app->Application());
            if (auto* mx = Query<com::IHostApplication>(hook, com::IID_IMxApplication)) {
                m_isMapApplication = true;
                mx->Release();
            }
        } else if (auto* control = Query<com::IMapControlHook>(hook, com::IID_IMapControl)) {
            m_mapControlHook = control;
        }
        std::int32_t mode = 0;
        SinkEventHandlers(mode);
        mode = 1;
        SinkEventHandlers(mode);
    });
}

void clsRequêteSouple::ICommand_OnClick() {
    Guarded("ICommand_OnClick", [&] { Mainprog(); });
}

void clsRequêteSouple::Mainprog() {
    Services().ShowDefinitionDialog();
}

void clsRequêteSouple::SinkEventHandlers(std::int32_t& mode) {
    Guarded("SinkEventHandlers", [&] {
        if (mode == 0) {
            if (m_mapControlHook != nullptr || m_appHook == nullptr || !m_isMapApplication) {
                return;
            }
            auto document = m_appHook->Application()->Document();
            if (document != m_documentSource) {
                SetDocumentSource(std::move(document));
            }
        } else if (mode == 1) {
            std::shared_ptr<host::IMap> map;
            if (m_mapControlHook != nullptr) {
                map = m_mapControlHook->Map();
            } else if (m_appHook != nullptr && m_isMapApplication) {
                map = m_appHook->Application()->Document()->FocusMap();
            } else {
                return;
            }
            if (map == m_viewSourceMap) {
                return;
            }
            SetViewSource(map);
            if (m_viewEvents != nullptr) {
                m_viewEvents->SetViewActive(true);
            }
        }
    });
}

void clsRequêteSouple::SetDocumentSource(std::shared_ptr<host::IMxDocument> document) {
    if (m_documentEvents != nullptr) {
        m_documentEvents->Unadvise(this);
    }
    m_documentSource = std::move(document);
    m_documentEvents = dynamic_cast<host::IDocumentEventSource*>(m_documentSource.get());
    if (m_documentEvents != nullptr) {
        m_documentEvents->Advise(this);
    }
}

void clsRequêteSouple::SetViewSource(std::shared_ptr<host::IMap> map) {
    if (m_viewEvents != nullptr) {
        m_viewEvents->Unadvise(this);
    }
    m_viewSourceMap = std::move(map);
    m_viewEvents = dynamic_cast<host::IMapEventSource*>(m_viewSourceMap.get());
    if (m_viewEvents != nullptr) {
        m_viewEvents->Advise(this);
    }
}

bool clsRequêteSouple::DocumentEvents_ActiveViewChanged() {
    return false;
}
bool clsRequêteSouple::DocumentEvents_MapsChanged() {
    return false;
}
bool clsRequêteSouple::DocumentEvents_BeforeCloseDocument() {
    return false;
}
bool clsRequêteSouple::DocumentEvents_CloseDocument() {
    return false;
}

bool clsRequêteSouple::DocumentEvents_NewDocument() {
    Guarded("DocumentEvents_NewDocument", [&] {
        std::int32_t mode = 0;
        SinkEventHandlers(mode);
    });
    return false;
}

bool clsRequêteSouple::DocumentEvents_OpenDocument() {
    Guarded("DocumentEvents_OpenDocument", [&] {
        std::int32_t mode = 0;
        SinkEventHandlers(mode);
    });
    return false;
}

void clsRequêteSouple::MapActiveViewEvents_FocusMapChanged() {
    Guarded("MapActiveViewEvents_FocusMapChanged", [&] {
        std::int32_t mode = 1;
        SinkEventHandlers(mode);
    });
}

void clsRequêteSouple::Class_Terminate() {
    Guarded("Class_Terminate", [&] {
        if (m_appHook != nullptr) {
            m_appHook->Release();
            m_appHook = nullptr;
        }
        if (m_mapControlHook != nullptr) {
            m_mapControlHook->Release();
            m_mapControlHook = nullptr;
        }
        SetDocumentSource(nullptr);
        SetViewSource(nullptr);
    });
}

} // namespace quorel::component
