#pragma once

// One QApplication on the offscreen platform for a whole test program: made at the first need
// (a fixture may come before the environment), gone before the program's exit, ahead of Qt's own
// statics. Including this header registers it.

#include <QApplication>

#include <gtest/gtest.h>

#include <memory>

namespace quorel::test {

class QtEnvironment final : public ::testing::Environment {
public:
    static void EnsureApplication() {
        if (Application()) {
            return;
        }
        qputenv("QT_QPA_PLATFORM", "offscreen");
        static int argc = 1;
        static char name[] = "quorel_tests";
        static char* argv[] = {name, nullptr};
        Application() = std::make_unique<QApplication>(argc, argv);
    }

    void SetUp() override { EnsureApplication(); }
    void TearDown() override { Application().reset(); }

private:
    static std::unique_ptr<QApplication>& Application() {
        static std::unique_ptr<QApplication> application;
        return application;
    }
};

inline const ::testing::Environment* const kQtEnvironment =
    ::testing::AddGlobalTestEnvironment(new QtEnvironment);

} // namespace quorel::test
