#include "component/pravel/PravelServices.h"

#include "dialog/ComponentState.h"
#include "dialog/CurrentTexts.h"
#include "dialog/QtMessageUi.h"
#include "errors/Component.h"
#include "lang/Module1.h"
#include "lang/SettingsStore.h"

#include "dialog/FrmAggregation.h"
#include "dialog/FrmQuery.h"

#include <QColor>
#include <QImage>
#include <QPainter>
#include <QPainterPath>

namespace quorel::component::pravel {
namespace {

IPravelServices* g_services = nullptr;

class QtPravelServices final : public IPravelServices {
public:
    util::IMessageUi& Ui() override { return m_ui; }

    std::string Text(std::int16_t id) override {
        if (m_module1.gResource() == nullptr) {
            m_module1.InitLanguage();
        }
        return m_texts.ResourceString(id);
    }

    void SetApplication(std::shared_ptr<host::IApplication> app) override {
        m_state.g_app = std::move(app);
    }

    void ShowWindow(PravelWindow window) override {
        // Each opening reads the language remembered now, as the definition dialog does.
        m_module1.InitLanguage();
        if (window == PravelWindow::Aggregation) {
            dialog::FrmAggregation form(m_state, m_texts);
            form.Show();
        } else {
            dialog::FrmQuery form(m_state, m_texts);
            form.Show();
        }
    }

    com::Picture CommandPicture(PravelWindow window) override { return DrawCommandPicture(window); }

private:
    dialog::QtMessageUi m_ui;
    lang::IniSettingsStore m_settings{lang::IniSettingsStore::UserConfigFolder()};
    lang::Module1 m_module1{m_ui, m_settings, errors::OwnComponent().folder};
    dialog::CurrentTexts m_texts{m_module1};
    dialog::ComponentState m_state;
};

} // namespace

IPravelServices& DefaultPravelServices() {
    // Never destroyed: Qt objects must not outlive the application at exit.
    static auto* services = new QtPravelServices();
    return *services;
}

IPravelServices& PravelServices() {
    if (g_services == nullptr) {
        g_services = &DefaultPravelServices();
    }
    return *g_services;
}

void SetPravelServices(IPravelServices* services) {
    g_services = services;
}

com::Picture DrawCommandPicture(PravelWindow window) {
    constexpr int kSize = 32;
    QImage image(kSize, kSize, QImage::Format_RGB888);
    image.fill(QColor(240, 240, 240));
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        if (window == PravelWindow::Aggregation) {
            // Three criteria overlapping: what they share is the combination.
            const QColor colours[] = {QColor(220, 60, 60, 150), QColor(60, 160, 60, 150),
                                      QColor(50, 90, 210, 150)};
            const QPointF centres[] = {{11, 12}, {21, 12}, {16, 21}};
            painter.setPen(QPen(QColor(40, 40, 40), 1));
            for (int i = 0; i < 3; ++i) {
                painter.setBrush(colours[i]);
                painter.drawEllipse(centres[i], 8.5, 8.5);
            }
        } else {
            // A funnel over a membership ramp cut at a threshold.
            painter.setPen(QPen(QColor(40, 40, 40), 1));
            painter.setBrush(QColor(50, 90, 210));
            QPainterPath funnel;
            funnel.moveTo(4, 4);
            funnel.lineTo(28, 4);
            funnel.lineTo(18, 16);
            funnel.lineTo(18, 26);
            funnel.lineTo(14, 29);
            funnel.lineTo(14, 16);
            funnel.closeSubpath();
            painter.drawPath(funnel);
            painter.setPen(QPen(QColor(220, 60, 60), 2));
            painter.drawLine(QPointF(2, 10), QPointF(30, 10));
        }
    }
    com::Picture picture;
    picture.width = kSize;
    picture.height = kSize;
    // Bottom-up BGR rows, as a device-independent bitmap holds them.
    picture.pixels.reserve(static_cast<std::size_t>(kSize * kSize * 3));
    for (int y = kSize - 1; y >= 0; --y) {
        const uchar* row = image.constScanLine(y);
        for (int x = 0; x < kSize; ++x) {
            picture.pixels += static_cast<char>(row[3 * x + 2]);
            picture.pixels += static_cast<char>(row[3 * x + 1]);
            picture.pixels += static_cast<char>(row[3 * x]);
        }
    }
    return picture;
}

} // namespace quorel::component::pravel
