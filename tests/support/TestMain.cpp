// SPDX-License-Identifier: MIT
// Shared main of every test program: a Qt application object, private XDG folders, GoogleTest.
#include <gtest/gtest.h>

#include <QTemporaryDir>
#include <QtGlobal>

#ifdef QF_TEST_GUI
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

int main(int argc, char **argv)
{
    // QSettings and QStandardPaths fix their folders on first use, so this must come first:
    // tests never touch the user's own configuration.
    QTemporaryDir home;
    qputenv("XDG_CONFIG_HOME", (home.path() + "/config").toUtf8());
    qputenv("XDG_DATA_HOME", (home.path() + "/data").toUtf8());
    qputenv("XDG_CACHE_HOME", (home.path() + "/cache").toUtf8());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");

    TestApplication app(argc, argv);
    TestApplication::setOrganizationName("Quillfern");
    TestApplication::setApplicationName("QuillfernTests");
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
