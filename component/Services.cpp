#include "component/CommandServices.h"

#include "util/Error.h"

namespace quorel::component {
namespace {

ICommandServices* g_services = nullptr;

} // namespace

ICommandServices& Services() {
    if (g_services == nullptr) {
        g_services = &DefaultServices();
    }
    return *g_services;
}

void SetServices(ICommandServices* services) {
    g_services = services;
}

} // namespace quorel::component
