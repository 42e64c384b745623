#pragma once

// Everything the component's windows share, made in one place: the component-wide state, the
// texts (Module1 and its gResource), the error log, the metadata file operations with their
// window, and the context handed to the forms. The component holds one for its life; tests
// make their own.

#include "dialog/ComponentState.h"
#include "dialog/CurrentTexts.h"
#include "dialog/DialogContext.h"
#include "dialog/frm_display_fzy.h"
#include "errors/ErrorLog.h"
#include "fzy/IO_fzyext.h"
#include "lang/Module1.h"

#include <memory>
#include <string>

namespace quorel::lang {
class ISettingsStore;
} // namespace quorel::lang

namespace quorel::dialog {

class DialogSession {
public:
    // componentFolder: where text.mdb lies and the error log is written.
    DialogSession(util::IMessageUi& ui, lang::ISettingsStore& settings,
                  const std::string& componentFolder,
                  errors::ComponentIdentity identity = errors::OwnComponent());
    DialogSession(const DialogSession&) = delete;
    DialogSession& operator=(const DialogSession&) = delete;

    // g_app, for the dialog and the metadata file's checks alike.
    void SetApplication(std::shared_ptr<host::IApplication> app);

    ComponentState state;
    lang::Module1 module1;
    errors::ErrorLog log;
    CurrentTexts texts;
    InfoWindow infoWindow;
    fzy::IO_fzyext fzy;
    DialogContext context;
};

} // namespace quorel::dialog
