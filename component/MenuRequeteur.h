#pragma once

#include "component/common/ComObject.h"

namespace quorel::component {

// The menu definition "Requêtes souples": two commands of a companion component. It has no
// state and no guard.
class menu_requeteur final : public com::IMenuDef, public com::IRootLevelMenu, private RefCounted {
public:
    static inline constexpr com::Guid kClsid =
        com::MakeGuid("{71CC87D6-DD8E-4C66-8A89-56657DF46D53}");
    static inline constexpr const char* kProgId = "Quorel.menu_requeteur";
    // The default interface _menu_requeteur, without members.
    static inline constexpr com::Guid kDefaultInterface =
        com::MakeGuid("{A66DC471-2A09-4598-805B-7E36DAEDD90D}");

    using PrimaryInterface = com::IMenuDef;

    com::HResult QueryInterface(const com::Guid& iid, void** object) override;
    std::uint32_t AddRef() override { return AddRefImpl(); }
    std::uint32_t Release() override { return ReleaseImpl(); }

    std::string Caption() override { return IMenuDef_Caption(); }
    std::string Name() override { return IMenuDef_Name(); }
    std::int32_t ItemCount() override { return IMenuDef_ItemCount(); }
    void GetItemInfo(std::int32_t pos, com::IItemDef* itemDef) override {
        IMenuDef_GetItemInfo(pos, itemDef);
    }

    static std::string IMenuDef_Caption();
    static std::string IMenuDef_Name();
    static std::int32_t IMenuDef_ItemCount();
    static void IMenuDef_GetItemInfo(std::int32_t pos, com::IItemDef* itemDef);

private:
    ~menu_requeteur() override = default;
};

} // namespace quorel::component
