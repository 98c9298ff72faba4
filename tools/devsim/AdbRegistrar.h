// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QProcess>
#include <QString>

// Runs "adb -P <server port> connect|disconnect 127.0.0.1:<port>" in the background, one at a time.
class AdbRegistrar : public QObject
{
    Q_OBJECT
public:
    AdbRegistrar(QString adb, quint16 serverPort, QObject *parent = nullptr);

    void connectDevice(quint16 devicePort);
    // Forgets the address first: a server that still lists it offline answers "already connected".
    void reconnectDevice(quint16 devicePort);

signals:
    void finished(const QString &output);

private:
    void runNext();

    QString m_adb;
    quint16 m_serverPort;
    QList<QStringList> m_queue;
    QProcess *m_process = nullptr;
};
