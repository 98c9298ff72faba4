// SPDX-License-Identifier: MIT
#include "AdbRegistrar.h"

#include <QTextStream>

AdbRegistrar::AdbRegistrar(QString adb, quint16 serverPort, QObject *parent)
    : QObject(parent), m_adb(std::move(adb)), m_serverPort(serverPort)
{
}

void AdbRegistrar::connectDevice(quint16 devicePort)
{
    m_queue.append({QStringLiteral("connect"), QStringLiteral("127.0.0.1:%1").arg(devicePort)});
    runNext();
}

void AdbRegistrar::reconnectDevice(quint16 devicePort)
{
    m_queue.append({QStringLiteral("disconnect"), QStringLiteral("127.0.0.1:%1").arg(devicePort)});
    connectDevice(devicePort);
}

void AdbRegistrar::runNext()
{
    if (m_process || m_queue.isEmpty())
        return;
    const QStringList args = QStringList{QStringLiteral("-P"), QString::number(m_serverPort)} + m_queue.takeFirst();
    m_process = new QProcess(this);
    m_process->setProcessChannelMode(QProcess::MergedChannels);
    m_process->setStandardInputFile(QProcess::nullDevice());
    connect(m_process, &QProcess::finished, this, [this] {
        const QString output = QString::fromUtf8(m_process->readAll()).trimmed();
        QTextStream(stderr) << "devsim: adb: " << output << Qt::endl;
        m_process->deleteLater();
        m_process = nullptr;
        emit finished(output);
        runNext();
    });
    connect(m_process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        QTextStream(stderr) << "devsim: cannot run " << m_adb << Qt::endl;
        m_process->deleteLater();
        m_process = nullptr;
        m_queue.clear();
    });
    m_process->start(m_adb, args);
}
