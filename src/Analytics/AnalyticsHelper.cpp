// SPDX-License-Identifier: MIT
#include "Analytics/AnalyticsHelper.h"

#include "Analytics/CountlyDB.h"
#include "Analytics/CountlyDeviceInfo.h"
#include "Helpers/Logger.h"
#include "Helpers/Settings.h"

#include <QCoreApplication>
#include <QDir>
#include <QGuiApplication>
#include <QPointer>
#include <QStandardPaths>

AnalyticsHelper::AnalyticsHelper(Options options, QObject *parent)
    : QObject(parent)
    , m_options(std::move(options))
{
    if (m_options.dataFolder.isEmpty())
        m_options.dataFolder = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
    if (m_options.appVersion.isEmpty())
        m_options.appVersion = QCoreApplication::applicationVersion();
    m_thread.setObjectName(QStringLiteral("analytics"));
    m_context = new QObject;
    m_context->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_context, &QObject::deleteLater);
    m_thread.start();
}

AnalyticsHelper::~AnalyticsHelper()
{
    // The session end is the last request; it is sent at the next start if not now.
    QMetaObject::invokeMethod(m_context, [this] {
        dropClient();
        QThread::currentThread()->quit();
    }, Qt::QueuedConnection);
    m_thread.wait();
}

void AnalyticsHelper::registerApp()
{
    if (m_registered)
        return;
    m_registered = true;
    connect(&SettingsNotifier::instance(), &SettingsNotifier::changed, this, [this](const QString &key) {
        if (key == SettingsKey::analyticsServer)
            applyServer();
    });
    if (auto *app = qobject_cast<QGuiApplication *>(QCoreApplication::instance()))
        connect(app, &QGuiApplication::applicationStateChanged, this, &AnalyticsHelper::onApplicationStateChanged);
    applyServer();
}

void AnalyticsHelper::dropClient()
{
    if (!m_client)
        return;
    m_client->suspend();
    delete m_client;
    m_client = nullptr;
}

void AnalyticsHelper::post(std::function<void(Countly &)> work)
{
    QMetaObject::invokeMethod(m_context, [this, work = std::move(work)] {
        if (m_client)
            work(*m_client);
    }, Qt::QueuedConnection);
}

void AnalyticsHelper::applyServer()
{
    const QString server = Settings::analyticsServer();
    if (server == m_server)
        return;
    const bool wasOn = !m_server.isEmpty();
    m_server = server;
    if (server.isEmpty()) {
        QF_LOG(QStringLiteral("usage statistics off"));
        // The session end stays in the queue: nothing goes to the server the user just removed.
        QMetaObject::invokeMethod(m_context, [this] {
            if (m_client)
                m_client->setHost(QString());
            dropClient();
        }, Qt::QueuedConnection);
        return;
    }
    if (wasOn) {
        post([server](Countly &client) { client.setHost(server); });
        return;
    }
    QF_LOG(QStringLiteral("usage statistics to %1").arg(server));
    // Read here: the device id and the screen belong to the GUI thread's side.
    const QString deviceId = CountlyDeviceInfo::openUDID();
    const QByteArray metrics = CountlyDeviceInfo::metrics(m_options.appVersion);
    const QString path = QDir(m_options.dataFolder).filePath(QString::fromLatin1(CountlyDB::FileName));
    QDir().mkpath(m_options.dataFolder);
    QMetaObject::invokeMethod(m_context, [this, server, deviceId, metrics, path] {
        if (m_client)
            return;
        m_client = new Countly(path, m_options.environment ? m_options.environment() : Countly::Environment{});
        m_client->start(QString::fromLatin1(AppKey), server, deviceId, metrics);
    }, Qt::QueuedConnection);
}

void AnalyticsHelper::onApplicationStateChanged(Qt::ApplicationState state)
{
    if (!isEnabled())
        return;
    if (state == Qt::ApplicationActive)
        post([](Countly &client) { client.resume(); });
    else
        post([](Countly &client) { client.suspend(); });
}

void AnalyticsHelper::logEvent(const QString &name)
{
    if (isEnabled())
        post([name](Countly &client) { client.recordEvent(name); });
}

void AnalyticsHelper::logEvent(const QString &name, const QMap<QString, QString> &params)
{
    if (isEnabled())
        post([name, params](Countly &client) { client.recordEvent(name, 1, params); });
}

void AnalyticsHelper::sendCrashReport(const QByteArray &crashJson)
{
    if (isEnabled())
        post([crashJson](Countly &client) { client.recordCrashReport(crashJson); });
}

std::function<void(const QString &)> AnalyticsHelper::eventRecorder()
{
    QPointer<AnalyticsHelper> self(this);
    return [self](const QString &name) {
        if (self)
            self->logEvent(name);
    };
}
