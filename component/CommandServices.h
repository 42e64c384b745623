#pragma once

#include "host/api/Host.h"
#include "quorel/Com.h"
#include "util/MessageUi.h"

#include <memory>

namespace quorel::component {

// What the command needs from the rest of the component: the message boxes, the definition
// dialog, the component-wide host application and the command's picture.
class ICommandServices {
public:
    virtual ~ICommandServices() = default;
    virtual util::IMessageUi& Ui() = 0;
    // Shows the definition dialog modally and returns when it is closed. May throw.
    virtual void ShowDefinitionDialog() = 0;
    // g_app.
    virtual void SetApplication(std::shared_ptr<host::IApplication> app) = 0;
    virtual std::shared_ptr<host::IApplication> Application() const = 0;
    // The picture of the hidden form frm_ress; created on first use and kept.
    virtual com::Picture CommandPicture() = 0;
    // A number that stands for that picture while the component is loaded; 0 when none.
    virtual std::int32_t CommandPictureHandle() = 0;
};

// The component's services; tests may put their own in place (nullptr restores the real ones).
// The real services: the Qt dialogs and message boxes.
ICommandServices& DefaultServices();

ICommandServices& Services();
void SetServices(ICommandServices* services);

} // namespace quorel::component
