#include "component/CommandServices.h"

#include "util/Error.h"

namespace quorel::component {
namespace {

// Until the dialogs are wired in, the command reports that it cannot open them.
class ConsoleServices final : public ICommandServices {
public:
    util::IMessageUi& Ui() override { return m_ui; }
    void ShowDefinitionDialog() override {
        throw Error(error_number::kHostFailure, "Mainprog",
                    "The definition dialog is not available");
    }
    void SetApplication(std::shared_ptr<host::IApplication> app) override {
        m_app = std::move(app);
    }
    std::shared_ptr<host::IApplication> Application() const override { return m_app; }
    com::Picture CommandPicture() override { return {}; }
    std::int32_t CommandPictureHandle() override { return 0; }

private:
    util::ConsoleMessageUi m_ui;
    std::shared_ptr<host::IApplication> m_app;
};

} // namespace

ICommandServices& DefaultServices() {
    static ConsoleServices services;
    return services;
}

} // namespace quorel::component
