#include "tests/dialog/DialogFixture.h"

#include "tests/support/QtApplication.h"
#include "tools/sample/PolygonShapefile.h"

#include <QApplication>
#include <QListWidget>
#include <QTest>
#include <QTimer>

#include <gdal.h>
#include <ogr_api.h>

#include <filesystem>

namespace quorel::dialog::test {

DialogTest::DialogTest() {
    const std::string scratch = m_scratch.path().toStdString();
    m_settings = std::make_unique<lang::IniSettingsStore>(scratch);
    m_session =
        std::make_unique<DialogSession>(m_ui, *m_settings, QUOREL_TEXT_DB_FOLDER,
                                        errors::ComponentIdentity{scratch, "quorel", "10.3.2"});
    m_app = std::make_shared<host::shapefile::Application>();
    m_session->SetApplication(m_app);
}

DialogTest::~DialogTest() {
    // A window the test expected and that never came must not be caught by the next test.
    for (QTimer* timer : qApp->findChildren<QTimer*>(QStringLiteral("quorel-modal-poll"))) {
        delete timer;
    }
    m_dialog.reset();
}

std::string DialogTest::Folder(const std::string& name) const {
    const std::string folder = m_scratch.path().toStdString() + "/" + name;
    std::filesystem::create_directories(folder);
    return folder;
}

std::string
DialogTest::WritePolygons(const std::string& folder, const std::string& name,
                          const std::vector<std::pair<std::string, std::vector<double>>>& fields) {
    std::vector<tools::FieldSpec> specs;
    std::size_t count = 1;
    for (const auto& [field, values] : fields) {
        specs.push_back({field, 'N', 14, 4});
        count = std::max(count, values.size());
    }
    specs.push_back({"NAME", 'C', 12, 0});
    const std::string path = Folder(folder) + "/" + name + ".shp";
    tools::WritePolygonShapefile(path, specs, count, [&](std::size_t index, auto& row) {
        for (std::size_t f = 0; f < fields.size(); ++f) {
            const auto& values = fields[f].second;
            row[f] = index < values.size() ? host::Value(values[index]) : host::Value();
        }
        row[fields.size()] = std::string("parcel");
    });
    return path;
}

std::string DialogTest::WritePoints(const std::string& folder, const std::string& name) {
    GDALAllRegister();
    const std::string path = Folder(folder) + "/" + name + ".shp";
    GDALDatasetH dataset = GDALCreate(GDALGetDriverByName("ESRI Shapefile"), path.c_str(), 0, 0, 0,
                                      GDT_Unknown, nullptr);
    OGRLayerH layer = GDALDatasetCreateLayer(dataset, name.c_str(), nullptr, wkbPoint, nullptr);
    OGRFieldDefnH field = OGR_Fld_Create("HEIGHT", OFTReal);
    OGR_L_CreateField(layer, field, TRUE);
    OGR_Fld_Destroy(field);
    OGRFeatureH feature = OGR_F_Create(OGR_L_GetLayerDefn(layer));
    OGR_F_SetFieldDouble(feature, 0, 12.5);
    OGRGeometryH point = OGR_G_CreateGeometry(wkbPoint);
    OGR_G_SetPoint_2D(point, 0, 1, 2);
    OGR_F_SetGeometryDirectly(feature, point);
    EXPECT_EQ(OGR_L_CreateFeature(layer, feature), OGRERR_NONE);
    OGR_F_Destroy(feature);
    GDALClose(dataset);
    return path;
}

std::shared_ptr<host::IFeatureLayer> DialogTest::AddLayer(const std::string& shpPath) {
    return m_app->AddShapefileLayer(shpPath);
}

frm_back& DialogTest::Dialog() {
    if (!m_dialog) {
        m_dialog = std::make_unique<frm_back>(m_session->context);
        m_dialog->Form_Load();
        m_dialog->show();
        QApplication::processEvents();
    }
    return *m_dialog;
}

std::string DialogTest::Text(std::int16_t id) const {
    return m_session->texts.ResourceString(id);
}

void DialogTest::ClickItem(QListWidget& list, const QString& text, Qt::MouseButton button) {
    const auto items = list.findItems(text, Qt::MatchExactly);
    ASSERT_FALSE(items.isEmpty()) << text.toStdString();
    const QPoint where = list.visualItemRect(items.back()).center();
    QTest::mouseClick(list.viewport(), button, {}, where);
}

void DialogTest::Click(QWidget& widget) {
    QTest::mouseClick(&widget, Qt::LeftButton, {}, widget.rect().center());
}

std::shared_ptr<bool> DialogTest::OnNextModal(std::function<void(QWidget&)> inspect) {
    auto seen = std::make_shared<bool>(false);
    auto* timer = new QTimer(qApp);
    timer->setObjectName(QStringLiteral("quorel-modal-poll"));
    timer->setInterval(10);
    auto attempts = std::make_shared<int>(0);
    QObject::connect(timer, &QTimer::timeout, timer, [timer, inspect, seen, attempts] {
        QWidget* window = QApplication::activeModalWidget();
        if (window != nullptr) {
            *seen = true;
            inspect(*window);
            window->close();
        }
        if (window != nullptr || ++*attempts >= 300) {
            timer->stop();
            timer->deleteLater();
        }
    });
    timer->start();
    return seen;
}

std::vector<std::string> DialogTest::Items(const QListWidget& list) {
    std::vector<std::string> items;
    for (int i = 0; i < list.count(); ++i) {
        items.push_back(list.item(i)->text().toStdString());
    }
    return items;
}

quorel::test::ProgramResult DialogTest::Quorel(const std::vector<std::string>& arguments) const {
    return quorel::test::RunProgram(
        QUOREL_CLI, arguments, {},
        {{"XDG_CONFIG_HOME", m_scratch.path().toStdString()}, {"LC_ALL", "C"}});
}

} // namespace quorel::dialog::test
