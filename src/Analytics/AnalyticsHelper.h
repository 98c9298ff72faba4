// SPDX-License-Identifier: MIT
#pragma once

#include "Analytics/Countly.h"

#include <QMap>
#include <QObject>
#include <QString>
#include <QThread>

#include <functional>

// The application's one entry point to usage statistics. Nothing is recorded or sent while the setting
// "analyticsServer" is empty (the default); naming a server starts a session, clearing it ends the
// session and stops sending.
//
// Threads: every public call is made on the GUI thread and only posts work to the analytics thread,
// which owns the client (Countly), its SQLite store and its network requests, so a call never waits
// on the disk or the network.
class AnalyticsHelper : public QObject
{
    Q_OBJECT

public:
    static constexpr const char *AppKey = "0123456789abcdef0123456789abcdef01234567";

    struct Options
    {
        // Where "Countly.sqlite" lives; empty means the application's data folder.
        QString dataFolder;
        // "_app_version" of the metrics; empty means QCoreApplication::applicationVersion().
        QString appVersion;
        // Timer, clock and time of the client, made on the analytics thread; null means the real ones.
        std::function<Countly::Environment()> environment;
    };

    explicit AnalyticsHelper(Options options = {}, QObject *parent = nullptr);
    // Queues a session end and joins the analytics thread.
    ~AnalyticsHelper() override;

    // Starts the client when a server is set, and from now on follows the setting and the application's
    // active state. Called once at launch.
    void registerApp();
    bool isEnabled() const { return !m_server.isEmpty(); }

    void logEvent(const QString &name);
    void logEvent(const QString &name, const QMap<QString, QString> &params);
    // Queues a crash report (a JSON object in the server's crash format); dropped when disabled.
    void sendCrashReport(const QByteArray &crashJson);

    // logEvent as a function, for the parts that record events without knowing this class.
    std::function<void(const QString &)> eventRecorder();

private:
    void applyServer();
    void onApplicationStateChanged(Qt::ApplicationState state);
    void post(std::function<void(Countly &client)> work);
    // Analytics thread: queues the session end and deletes the client.
    void dropClient();

    Options m_options;
    QThread m_thread;
    QObject *m_context = nullptr; // lives on m_thread; work is posted to it
    Countly *m_client = nullptr;  // analytics thread only
    QString m_server;             // GUI thread: the server in use, empty when off
    bool m_registered = false;
};
