#include "component/MenuRequeteur.h"

namespace quorel::component {

com::HResult menu_requeteur::QueryInterface(const com::Guid& iid, void** object) {
    if (object == nullptr) {
        return com::kPointer;
    }
    *object = nullptr;
    if (iid == com::IID_IUnknown || iid == com::IID_IMenuDef || iid == kDefaultInterface) {
        return Hand(static_cast<com::IMenuDef*>(this), object);
    }
    if (iid == com::IID_IRootLevelMenu) {
        return Hand(static_cast<com::IRootLevelMenu*>(this), object);
    }
    return com::kNoInterface;
}

std::string menu_requeteur::IMenuDef_Caption() {
    return "Requêtes souples";
}

std::string menu_requeteur::IMenuDef_Name() {
    return "Le requêteur souple\"";
}

std::int32_t menu_requeteur::IMenuDef_ItemCount() {
    return 2;
}

void menu_requeteur::IMenuDef_GetItemInfo(std::int32_t pos, com::IItemDef* itemDef) {
    switch (pos) {
    case 0:
        itemDef->SetID("Pravel.clsrequêtesouple");
        break;
    case 1:
        itemDef->SetID("Pravel.clsagregationsouple");
        break;
    default:
        break;
    }
}

} // namespace quorel::component
