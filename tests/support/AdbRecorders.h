// SPDX-License-Identifier: MIT
#pragma once

#include "Android/DeviceListReader.h"
#include "Android/DeviceNameReader.h"
#include "Android/LogReader.h"
#include "Android/PidReader.h"
#include "Session/DeviceListDatasource.h"
#include "support/QtPrinters.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QMutex>
#include <QMutexLocker>
#include <QStringList>
#include <QThread>
#include <QTimer>

#include <ostream>

// Waits for pred while running the event loop, checking every millisecond (QTest::qWaitFor sleeps
// 10 ms between checks, which makes many short network round trips slow).
inline bool waitUntil(const std::function<bool()> &pred, int timeoutMs)
{
    if (pred())
        return true;
    QEventLoop loop;
    QTimer poll;
    QElapsedTimer clock;
    clock.start();
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (pred() || clock.elapsed() > timeoutMs)
            loop.quit();
    });
    poll.start(1);
    loop.exec();
    return pred();
}

// Delegates that write every callback as one text, in order, safe to read from the test's thread
// while the reader runs on another. Lines are "line:<text>" ("line:<absent>" for invalid UTF-8).
class AdbEventLog
{
public:
    void add(const QString &event)
    {
        QMutexLocker lock(&m_mutex);
        m_events.append(event);
        m_threads.append(QThread::currentThread());
    }
    QStringList events() const
    {
        QMutexLocker lock(&m_mutex);
        return m_events;
    }
    qsizetype size() const
    {
        QMutexLocker lock(&m_mutex);
        return m_events.size();
    }
    QList<QThread *> threads() const
    {
        QMutexLocker lock(&m_mutex);
        return m_threads;
    }

private:
    mutable QMutex m_mutex;
    QStringList m_events;
    QList<QThread *> m_threads;
};

struct LogReaderRecorder : LogReaderDelegate, AdbEventLog
{
    void logLineReceived(const std::optional<QString> &line) override
    {
        add(QStringLiteral("line:") + line.value_or(QStringLiteral("<absent>")));
    }
    void logReaderStopped() override { add(QStringLiteral("stopped")); }
    void logReaderStoppedWithError(const AdbError &error) override
    {
        add(QStringLiteral("error:%1:%2:%3").arg(error.domain).arg(error.code).arg(error.description));
    }
    void adbNotRunningError(const AdbError &error) override { add(QStringLiteral("notRunning:%1").arg(error.code)); }
    void adbDeviceNotFound(const AdbError &error) override
    {
        add(QStringLiteral("notFound:%1:%2:%3").arg(error.domain).arg(error.code).arg(error.description));
    }
};

struct PidReaderRecorder : PidReaderDelegate, AdbEventLog
{
    void pidReceived(const std::optional<QString> &output) override
    {
        add(QStringLiteral("pids:") + output.value_or(QStringLiteral("<absent>")));
    }
    void pidFailedWithError(const AdbError &error) override { add(QStringLiteral("pidFailed:") + error.description); }
};

struct DeviceListReaderRecorder : DeviceListReaderDelegate, AdbEventLog
{
    void devicesReceived(const std::optional<QString> &list) override
    {
        add(QStringLiteral("devices:") + list.value_or(QStringLiteral("<absent>")));
    }
    void deviceListFailedWithError(int code) override { add(QStringLiteral("failed:%1").arg(code)); }
};

struct DeviceNameReaderRecorder : DeviceNameReaderDelegate, AdbEventLog
{
    void deviceNameReceived(const QString &model, const QString &deviceId) override
    {
        add(QStringLiteral("model:%1:%2").arg(deviceId, model));
    }
    void deviceNameFailedWithError(const AdbError &error, const QString &deviceId) override
    {
        add(QStringLiteral("nameFailed:%1:%2:%3").arg(deviceId).arg(error.code).arg(error.description));
    }
};

// "devices:<ids in the announced order>"; the lists themselves are kept too (GUI thread only).
struct DeviceListDatasourceRecorder : DeviceListDatasourceDelegate, AdbEventLog
{
    QList<QList<DeviceEntry>> lists;

    void onDevicesConnected(const QList<DeviceEntry> &devices) override
    {
        lists.append(devices);
        QStringList ids;
        for (const DeviceEntry &d : devices)
            ids.append(d.id);
        add(QStringLiteral("devices:") + ids.join(u','));
    }
    void onDeviceModel(const QString &deviceId, const QString &model) override
    {
        add(QStringLiteral("model:%1:%2").arg(deviceId, model));
    }
    void onDeviceListFailed(int code) override { add(QStringLiteral("failed:%1").arg(code)); }
};
