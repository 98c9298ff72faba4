// SPDX-License-Identifier: MIT
#include "Helpers/Utils.h"

#include "Helpers/Logger.h"
#include "Helpers/MainThread.h"
#include "Helpers/TextHelpers.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QThreadPool>

#include <mutex>
#include <vector>

namespace {
const QString AdbName = QStringLiteral("adb");
} // namespace

QStringList Utils::adbCandidates(const QString &home, const QProcessEnvironment &environment)
{
    QStringList candidates;
    for (const char *folder : {"/android-sdks/platform-tools", "/Library/Android/sdk/platform-tools",
                               "/Android/Sdk/platform-tools"})
        candidates.append(home + QLatin1String(folder) + QStringLiteral("/adb"));
    for (const char *variable : {"ANDROID_HOME", "ANDROID_SDK_ROOT"}) {
        const QString sdk = environment.value(QLatin1String(variable));
        if (!sdk.isEmpty())
            candidates.append(sdk + QStringLiteral("/platform-tools/adb"));
    }
    candidates.append(AdbName);
    return candidates;
}

std::optional<QString> Utils::getAdbPath()
{
    return getAdbPath(QDir::homePath(), QProcessEnvironment::systemEnvironment());
}

std::optional<QString> Utils::getAdbPath(const QString &home, const QProcessEnvironment &environment)
{
    for (const QString &candidate : adbCandidates(home, environment)) {
        if (candidate == AdbName) {
            const QStringList path = environment.value(QStringLiteral("PATH")).split(u':', Qt::SkipEmptyParts);
            const QString found = path.isEmpty() ? QString() : QStandardPaths::findExecutable(AdbName, path);
            if (!found.isEmpty()) {
                QF_LOG(QStringLiteral("found:%1").arg(found));
                return found;
            }
        } else if (QFileInfo(candidate).isFile()) {
            QF_LOG(QStringLiteral("found:%1").arg(candidate));
            return candidate;
        }
        QF_LOG(QStringLiteral("not found:%1").arg(candidate));
    }
    return std::nullopt;
}

namespace {

// The start under way, if any: every caller that came meanwhile is told its result.
std::mutex g_startMutex;
bool g_startRunning = false;
std::vector<std::function<void(bool)>> g_startWaiters;

bool runStartServer(const QString &path, quint16 port)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    // stdin stays the managed pipe QProcess connects and is never written or closed: the tool
    // sees a connected but unused input.
    process.start(path, {QStringLiteral("-P"), QString::number(port), QStringLiteral("start-server")});
    if (!process.waitForStarted(-1)) {
        QF_LOG(QStringLiteral("NSException: %1").arg(process.errorString()));
        return false;
    }
    // Read until the pipe ends: the tool has exited and nothing it forked still writes.
    QByteArray output;
    while (process.waitForReadyRead(-1))
        output += process.readAll();
    process.waitForFinished(-1);
    output += process.readAll();
    const QString text = QString::fromUtf8(output);
    QF_LOG(QStringLiteral("GOT: %1").arg(text));
    return qf::contains(text, u"daemon started successfully", true);
}

} // namespace

void Utils::startAdb(std::function<void(bool)> completion, quint16 port)
{
    startAdb(getAdbPath(), std::move(completion), port);
}

void Utils::startAdb(const std::optional<QString> &adbPath, std::function<void(bool)> completion, quint16 port)
{
    if (!adbPath) {
        QF_LOG(QStringLiteral("adb not found"));
        completion(false);
        return;
    }
    {
        std::lock_guard lock(g_startMutex);
        g_startWaiters.push_back(std::move(completion));
        if (g_startRunning)
            return;
        g_startRunning = true;
    }
    QThreadPool::globalInstance()->start([path = *adbPath, port] {
        const bool success = runStartServer(path, port);
        std::vector<std::function<void(bool)>> waiters;
        {
            std::lock_guard lock(g_startMutex);
            waiters.swap(g_startWaiters);
            g_startRunning = false;
        }
        runOnMainThread([waiters = std::move(waiters), success] {
            for (const auto &waiter : waiters)
                waiter(success);
        });
    });
}

bool Utils::isSandboxed()
{
    return qEnvironmentVariableIsSet("APP_SANDBOX_CONTAINER_ID");
}
