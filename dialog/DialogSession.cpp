#include "dialog/DialogSession.h"

#include "util/StringFunctions.h"

namespace quorel::dialog {

DialogSession::DialogSession(util::IMessageUi& ui, lang::ISettingsStore& settings,
                             const std::string& componentFolder, errors::ComponentIdentity identity)
    : module1(ui, settings, componentFolder), log(ui, std::move(identity)), texts(module1),
      infoWindow([this]() -> const lang::clsResourceMDB* { return module1.gResource(); }),
      fzy(ui, texts, infoWindow), context{state, ui, module1, log, fzy, SystemFileChooser} {
    fzy.SetDecimalMark(util::DecimalSeparator());
}

void DialogSession::SetApplication(std::shared_ptr<host::IApplication> app) {
    state.g_app = app;
    fzy.SetApplication(std::move(app));
}

} // namespace quorel::dialog
