#pragma once

// One QApplication on the offscreen platform for a whole test program, made before its first
// test and gone before its exit, ahead of Qt's own statics. Including this header registers it.

#include <QApplication>

#include <gtest/gtest.h>

#include <memory>

namespace quorel::test {

class QtEnvironment final : public ::testing::Environment {
public:
    void SetUp() override {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        m_application = std::make_unique<QApplication>(m_argc, m_argv);
    }
    void TearDown() override { m_application.reset(); }

private:
    int m_argc = 1;
    char m_name[13] = "quorel_tests";
    char* m_argv[2] = {m_name, nullptr};
    std::unique_ptr<QApplication> m_application;
};

inline const ::testing::Environment* const kQtEnvironment =
    ::testing::AddGlobalTestEnvironment(new QtEnvironment);

} // namespace quorel::test
