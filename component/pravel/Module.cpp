// Pravel.so's four entry points: its type library and its two commands.

#include "component/common/ComServer.h"
#include "component/pravel/PravelCommands.h"

namespace quorel::component::pravel {
namespace {

const ServerDescription& Server() {
    static const ServerDescription server{
        com::MakeGuid("{2B6E9F40-7A13-4C85-9D2E-B04F81C3A65D}"),
        "Pravel",
        "1.0",
        {{clsagregationsouple::kClsid, clsagregationsouple::kProgId,
          NewFactory<clsagregationsouple>},
         {clsrequêtesouple::kClsid, clsrequêtesouple::kProgId, NewFactory<clsrequêtesouple>}}};
    return server;
}

} // namespace
} // namespace quorel::component::pravel

using namespace quorel;

extern "C" {

__attribute__((visibility("default"))) com::HResult DllRegisterServer() {
    return component::RegisterServer(component::pravel::Server());
}

__attribute__((visibility("default"))) com::HResult DllUnregisterServer() {
    return component::UnregisterServer(component::pravel::Server());
}

__attribute__((visibility("default"))) com::HResult
DllGetClassObject(const com::Guid* clsid, const com::Guid* iid, void** object) {
    return component::GetClassObject(component::pravel::Server(), clsid, iid, object);
}

__attribute__((visibility("default"))) com::HResult DllCanUnloadNow() {
    return component::CanUnloadNow();
}

} // extern "C"
