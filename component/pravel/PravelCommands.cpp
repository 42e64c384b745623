#include "component/pravel/PravelCommands.h"

#include "component/common/MemberGuard.h"

namespace quorel::component::pravel {
namespace {

constexpr const char* kCategory = "OMBREL";

} // namespace

PravelCommand::PravelCommand(PravelWindow window, const com::Guid& defaultInterface,
                             const char* moduleName, const char* name)
    : m_window(window), m_defaultInterface(defaultInterface), m_moduleName(moduleName),
      m_name(name) {}

template <typename Body, typename Result>
Result PravelCommand::Guarded(const char* procName, Body body, Result fallback) {
    return GuardedMember(PravelServices().Ui(), m_moduleName, procName, body, fallback);
}

com::HResult PravelCommand::QueryInterface(const com::Guid& iid, void** object) {
    if (object == nullptr) {
        return com::kPointer;
    }
    *object = nullptr;
    if (iid == com::IID_IUnknown || iid == com::IID_ICommand || iid == m_defaultInterface) {
        return Hand(static_cast<com::ICommand*>(this), object);
    }
    return com::kNoInterface;
}

bool PravelCommand::Enabled() {
    return true;
}

bool PravelCommand::Checked() {
    return false;
}

std::string PravelCommand::Name() {
    return m_name;
}

std::string PravelCommand::Caption() {
    return Guarded(
        "ICommand_Caption",
        [&] {
            return PravelServices().Text(m_window == PravelWindow::Aggregation
                                             ? kTextAggregationCaption
                                             : kTextQueryCaption);
        },
        std::string());
}

std::string PravelCommand::Tooltip() {
    return Guarded(
        "ICommand_Tooltip",
        [&] {
            return PravelServices().Text(m_window == PravelWindow::Aggregation
                                             ? kTextAggregationTooltip
                                             : kTextQueryTooltip);
        },
        std::string());
}

std::string PravelCommand::Message() {
    return Tooltip();
}

std::string PravelCommand::HelpFile() {
    return {};
}

std::int32_t PravelCommand::HelpContextID() {
    return 0;
}

com::Picture PravelCommand::BitmapData() {
    return Guarded(
        "ICommand_Bitmap", [&] { return PravelServices().CommandPicture(m_window); },
        com::Picture{});
}

std::int32_t PravelCommand::Bitmap() {
    // One picture per class while the library is loaded.
    return m_window == PravelWindow::Aggregation ? 1 : 2;
}

std::string PravelCommand::Category() {
    return kCategory;
}

void PravelCommand::OnCreate(com::IUnknown* hook) {
    Guarded(
        "ICommand_OnCreate",
        [&] {
            void* app = nullptr;
            if (hook != nullptr &&
                com::Succeeded(hook->QueryInterface(com::IID_IApplication, &app))) {
                auto* host = static_cast<com::IHostApplication*>(app);
                PravelServices().SetApplication(host->Application());
                host->Release();
            }
            return 0;
        },
        0);
}

void PravelCommand::OnClick() {
    Guarded(
        "ICommand_OnClick",
        [&] {
            PravelServices().ShowWindow(m_window);
            return 0;
        },
        0);
}

} // namespace quorel::component::pravel
