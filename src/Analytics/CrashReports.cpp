// SPDX-License-Identifier: MIT
#include "Analytics/CrashReports.h"

#include "Analytics/CountlyDeviceInfo.h"
#include "Helpers/Logger.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStandardPaths>

CrashReports::CrashReports(QString folder)
    : m_folder(std::move(folder))
{
}

QString CrashReports::defaultFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation) + QStringLiteral("/crashes");
}

QStringList CrashReports::pending() const
{
    const QFileInfoList files =
        QDir(m_folder).entryInfoList({QStringLiteral("crash-*.txt")}, QDir::Files, QDir::Time);
    QStringList kept;
    for (const QFileInfo &file : files) {
        if (kept.size() < Kept)
            kept.append(file.absoluteFilePath());
        else if (QFile::remove(file.absoluteFilePath()))
            QF_LOG(QStringLiteral("old crash report removed: %1").arg(file.absoluteFilePath()));
    }
    return kept;
}

std::optional<CrashReport> CrashReports::read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    std::optional<CrashReport> report = parse(file.read(4 * 1024 * 1024));
    if (report)
        report->path = path;
    return report;
}

std::optional<CrashReport> CrashReports::parse(const QByteArray &text)
{
    CrashReport report;
    const qsizetype backtraceAt = text.indexOf("\nbacktrace:\n");
    if (!text.startsWith("signal: ") || backtraceAt < 0)
        return std::nullopt;
    for (const QByteArray &line : text.left(backtraceAt).split('\n')) {
        const qsizetype colon = line.indexOf(": ");
        if (colon < 0)
            continue;
        const QByteArray key = line.left(colon);
        const QString value = QString::fromUtf8(line.mid(colon + 2));
        if (key == "signal") {
            report.signal = value.section(QLatin1Char(' '), 0, 0).toInt();
            report.signalName = value.section(QLatin1Char(' '), 1);
        } else if (key == "version") {
            report.version = value;
        } else if (key == "revision") {
            report.revision = value;
        } else if (key == "time") {
            report.time = value.toLongLong();
        } else if (key == "run") {
            report.runSeconds = value.toLongLong();
        }
    }
    const QByteArray rest = text.mid(backtraceAt + 12);
    const qsizetype logAt = rest.startsWith("log:\n") ? 0 : rest.indexOf("\nlog:\n");
    report.backtrace = QString::fromUtf8(logAt < 0 ? rest : rest.left(logAt)).trimmed();
    if (logAt >= 0) {
        QStringList lines = QString::fromUtf8(rest.mid(logAt + (logAt == 0 ? 5 : 6))).split(QLatin1Char('\n'));
        while (!lines.isEmpty() && lines.last().isEmpty())
            lines.removeLast();
        report.log = lines.mid(qMax<qsizetype>(0, lines.size() - LogLines)).join(QLatin1Char('\n'));
    }
    return report;
}

QByteArray CrashReports::toCrashJson(const CrashReport &report)
{
    QJsonObject crash;
    crash.insert(QStringLiteral("_os"), QStringLiteral("Linux"));
    crash.insert(QStringLiteral("_os_version"), CountlyDeviceInfo::osVersion());
    crash.insert(QStringLiteral("_device"), CountlyDeviceInfo::device());
    crash.insert(QStringLiteral("_app_version"), report.version);
    crash.insert(QStringLiteral("_name"), report.signalName);
    crash.insert(QStringLiteral("_error"), report.backtrace);
    crash.insert(QStringLiteral("_nonfatal"), false);
    crash.insert(QStringLiteral("_logs"), report.log);
    crash.insert(QStringLiteral("_run"), report.runSeconds);
    crash.insert(QStringLiteral("_custom"), QJsonObject{{QStringLiteral("revision"), report.revision}});
    return QJsonDocument(crash).toJson(QJsonDocument::Compact);
}
