// SPDX-License-Identifier: MIT
#include "Analytics/AnalyticsHelper.h"
#include "Analytics/CrashHandler.h"
#include "Analytics/CrashReports.h"
#include "BuildInfo.h"
#include "Helpers/Logger.h"
#include "Scenes/CrashReportSheet.h"
#include "Scenes/MainWindow.h"
#include "Scenes/QuillfernAppDelegate.h"

#include <QApplication>
#include <QFileInfo>
#include <QIcon>
#include <QMetaObject>

int main(int argc, char **argv)
{
    // The names fix the data folder, which the crash handler needs before anything else runs.
    QApplication::setOrganizationName(QStringLiteral("Quillfern"));
    QApplication::setApplicationName(QStringLiteral("Quillfern"));
    QApplication::setApplicationVersion(QStringLiteral(QF_VERSION));
    CrashHandler::install(CrashReports::defaultFolder(), Logger::defaultLogFilePath(), QF_VERSION, QF_GIT_REVISION);

    // The icons live in the widget library, a static library: register its resources by hand.
    Q_INIT_RESOURCE(resources);
    QApplication app(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Quillfern"));
    QApplication::setDesktopFileName(QStringLiteral("quillfern"));
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/quillfern-256.png")));
    // Closing the main window quits.
    QApplication::setQuitOnLastWindowClosed(true);

    Logger::getInstance().registerLogger();
    AnalyticsHelper analytics;
    analytics.registerApp();

    QuillfernAppDelegate::Options options;
    options.recordEvent = analytics.eventRecorder();
    QuillfernAppDelegate controller(std::move(options));
    controller.applicationDidFinishLaunching();
    CrashReportSheet::offerPendingReports(controller.window(), analytics, CrashReports::defaultFolder());

    // A log file named on the command line opens as if the desktop had handed it over.
    const QStringList arguments = QApplication::arguments().mid(1);
    for (const QString &argument : arguments) {
        if (argument.startsWith(QLatin1Char('-')))
            continue;
        const QString path = QFileInfo(argument).absoluteFilePath();
        QMetaObject::invokeMethod(&controller, [&controller, path] { controller.openFile(path); }, Qt::QueuedConnection);
        break;
    }
    return app.exec();
}
