#pragma once

#include "dialog/DialogSession.h"
#include "dialog/frm_back.h"
#include "host/shapefile/Application.h"
#include "lang/SettingsStore.h"
#include "tests/apps/RunProgram.h"
#include "tests/support/RecordingMessageUi.h"
#include "util/MessageUi.h"

#include <QString>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

class QListWidget;
class QWidget;

namespace quorel::dialog::test {

// A component with its text database, fresh settings and error log in a scratch folder, a GDAL
// host over shapefiles made by the test, and boxes recorded rather than shown.
class DialogTest : public ::testing::Test {
protected:
    DialogTest();
    ~DialogTest() override;

    std::string Folder(const std::string& name) const;
    // A polygon shapefile folder/name.shp with numeric fields, each with its values per feature.
    std::string
    WritePolygons(const std::string& folder, const std::string& name,
                  const std::vector<std::pair<std::string, std::vector<double>>>& fields);
    // A point shapefile with one numeric field.
    std::string WritePoints(const std::string& folder, const std::string& name);
    std::shared_ptr<host::IFeatureLayer> AddLayer(const std::string& shpPath);

    // The dialog, loaded and shown.
    frm_back& Dialog();
    std::string Text(std::int16_t id) const;

    // Mouse and keyboard as the user would use them.
    static void ClickItem(QListWidget& list, const QString& text,
                          Qt::MouseButton button = Qt::LeftButton);
    static void Click(QWidget& widget);
    // Runs inspect on the next modal window once it shows, then closes it. The flag tells
    // whether one came.
    static std::shared_ptr<bool> OnNextModal(std::function<void(QWidget&)> inspect);

    static std::vector<std::string> Items(const QListWidget& list);

    // The command line program, in the C locale with its settings in the scratch folder.
    quorel::test::ProgramResult Quorel(const std::vector<std::string>& arguments) const;

    QTemporaryDir m_scratch;
    util::RecordingMessageUi m_ui;
    std::unique_ptr<lang::IniSettingsStore> m_settings;
    std::unique_ptr<DialogSession> m_session;
    std::shared_ptr<host::shapefile::Application> m_app;
    std::unique_ptr<frm_back> m_dialog;
};

} // namespace quorel::dialog::test
