// Quorel.so's four entry points: its type library and its two classes, the command and the menu.

#include "component/CommandRequeteSouple.h"
#include "component/MenuRequeteur.h"
#include "component/common/ComServer.h"

namespace quorel::component {
namespace {

const ServerDescription& Server() {
    static const ServerDescription server{
        com::MakeGuid("{B9FAE490-258D-4CFC-8A44-B0D7C470A193}"),
        "Quorel",
        "1.0",
        {{clsRequêteSouple::kClsid, clsRequêteSouple::kProgId, NewFactory<clsRequêteSouple>},
         {menu_requeteur::kClsid, menu_requeteur::kProgId, NewFactory<menu_requeteur>}}};
    return server;
}

} // namespace
} // namespace quorel::component

using namespace quorel;

extern "C" {

__attribute__((visibility("default"))) com::HResult DllRegisterServer() {
    return component::RegisterServer(component::Server());
}

__attribute__((visibility("default"))) com::HResult DllUnregisterServer() {
    return component::UnregisterServer(component::Server());
}

__attribute__((visibility("default"))) com::HResult
DllGetClassObject(const com::Guid* clsid, const com::Guid* iid, void** object) {
    return component::GetClassObject(component::Server(), clsid, iid, object);
}

__attribute__((visibility("default"))) com::HResult DllCanUnloadNow() {
    return component::CanUnloadNow();
}

} // extern "C"
