#include "component/CommandServices.h"

#include "dialog/DialogSession.h"
#include "dialog/QtMessageUi.h"
#include "dialog/frm_back.h"
#include "dialog/frm_ress.h"
#include "errors/Component.h"
#include "lang/SettingsStore.h"

#include <QImage>
#include <QLabel>
#include <QPixmap>

#include <memory>

namespace quorel::component {
namespace {

// The component's real services: Qt boxes, the definition dialog and its shared state, made on
// first use (the host's Qt application exists by then) and kept while the component is loaded.
class DialogServices final : public ICommandServices {
public:
    util::IMessageUi& Ui() override { return m_ui; }

    void ShowDefinitionDialog() override { dialog::Mainprog(Session().context); }

    void SetApplication(std::shared_ptr<host::IApplication> app) override {
        m_app = app;
        if (m_session) {
            m_session->SetApplication(std::move(app));
        }
    }

    std::shared_ptr<host::IApplication> Application() const override { return m_app; }

    com::Picture CommandPicture() override {
        if (!m_resources) {
            m_resources = std::make_unique<dialog::frm_ress>();
        }
        const QImage image =
            m_resources->Picture2->pixmap().toImage().convertToFormat(QImage::Format_RGB888);
        com::Picture picture;
        picture.width = image.width();
        picture.height = image.height();
        // Bottom-up BGR rows, as a device-independent bitmap holds them.
        picture.pixels.reserve(static_cast<std::size_t>(image.width() * image.height() * 3));
        for (int y = image.height() - 1; y >= 0; --y) {
            const uchar* row = image.constScanLine(y);
            for (int x = 0; x < image.width(); ++x) {
                picture.pixels += static_cast<char>(row[3 * x + 2]);
                picture.pixels += static_cast<char>(row[3 * x + 1]);
                picture.pixels += static_cast<char>(row[3 * x]);
            }
        }
        return picture;
    }

    std::int32_t CommandPictureHandle() override {
        // The picture lives as long as the hidden form; one form, one handle.
        if (!m_resources) {
            m_resources = std::make_unique<dialog::frm_ress>();
        }
        return kPictureHandle;
    }

private:
    static constexpr std::int32_t kPictureHandle = 1;

    dialog::DialogSession& Session() {
        if (!m_session) {
            m_session = std::make_unique<dialog::DialogSession>(m_ui, m_settings,
                                                                errors::OwnComponent().folder);
            m_session->SetApplication(m_app);
        }
        return *m_session;
    }

    dialog::QtMessageUi m_ui;
    lang::IniSettingsStore m_settings{lang::IniSettingsStore::UserConfigFolder()};
    std::shared_ptr<host::IApplication> m_app;
    std::unique_ptr<dialog::DialogSession> m_session;
    std::unique_ptr<dialog::frm_ress> m_resources;
};

} // namespace

ICommandServices& DefaultServices() {
    // Never destroyed: Qt objects must not outlive the application at exit, and the host may
    // unload the component after its QApplication is gone.
    static auto* services = new DialogServices();
    return *services;
}

} // namespace quorel::component
