#pragma once

#include "component/common/ComObject.h"
#include "component/pravel/PravelServices.h"

#include <string>

namespace quorel::component::pravel {

// A command of the "Requêtes souples" menu: a button of the host that opens one of Pravel's
// windows. Every member reports its own failures through HandleError.
class PravelCommand : public com::ICommand, private RefCounted {
public:
    using PrimaryInterface = com::ICommand;

    com::HResult QueryInterface(const com::Guid& iid, void** object) override;
    std::uint32_t AddRef() override { return AddRefImpl(); }
    std::uint32_t Release() override { return ReleaseImpl(); }

    bool Enabled() override;
    bool Checked() override;
    std::string Name() override;
    std::string Caption() override;
    std::string Tooltip() override;
    std::string Message() override;
    std::string HelpFile() override;
    std::int32_t HelpContextID() override;
    com::Picture BitmapData() override;
    std::int32_t Bitmap() override;
    std::string Category() override;
    void OnCreate(com::IUnknown* hook) override;
    void OnClick() override;

protected:
    PravelCommand(PravelWindow window, const com::Guid& defaultInterface, const char* moduleName,
                  const char* name);
    ~PravelCommand() override = default;

private:
    template <typename Body, typename Result>
    Result Guarded(const char* procName, Body body, Result fallback);

    PravelWindow m_window;
    com::Guid m_defaultInterface;
    const char* m_moduleName;
    const char* m_name;
};

// Fuzzy aggregation: combines criterion fields into a new field.
class clsagregationsouple final : public PravelCommand {
public:
    static inline constexpr com::Guid kClsid =
        com::MakeGuid("{5E0B7C3A-91D2-4F6B-A8E4-2C71D9B04F15}");
    static inline constexpr const char* kProgId = "Pravel.clsagregationsouple";
    static inline constexpr com::Guid kDefaultInterface =
        com::MakeGuid("{8A4F2E61-3C7B-4D90-B5A1-E6F30C9D7B28}");

    clsagregationsouple()
        : PravelCommand(PravelWindow::Aggregation, kDefaultInterface, "clsagregationsouple",
                        "OMBREL_Agrégation souple") {}
};

// Fuzzy query: selects the features whose combined degree reaches a threshold.
class clsrequêtesouple final : public PravelCommand {
public:
    static inline constexpr com::Guid kClsid =
        com::MakeGuid("{C3D91A57-6E28-4B0F-9A7C-41E85F2B6D93}");
    static inline constexpr const char* kProgId = "Pravel.clsrequêtesouple";
    static inline constexpr com::Guid kDefaultInterface =
        com::MakeGuid("{F1A26B84-0D5E-4C37-8E9B-7A3C52D10E46}");

    clsrequêtesouple()
        : PravelCommand(PravelWindow::Query, kDefaultInterface, "clsrequêtesouple",
                        "OMBREL_Requête souple") {}
};

} // namespace quorel::component::pravel
