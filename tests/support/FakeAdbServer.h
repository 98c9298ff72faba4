// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

#include "Android/AdbConnectionSettings.h"

#include <gtest/gtest.h>

class QTcpServer;
class QTcpSocket;

// A scripted ADB server on 127.0.0.1 for protocol cases the real server cannot produce (chosen "FAIL"
// messages, broken length fields, truncated replies). Each accepted connection plays the next script:
// wait for the expected request bytes, write replies, optionally close. A connection beyond the
// scripts is closed at once. Lives on the thread that creates it (the test's main thread).
class FakeAdbServer : public QObject
{
public:
    struct Step
    {
        enum Kind { Expect, Reply, Close };
        Kind kind;
        QByteArray bytes;
    };
    using Script = QList<Step>;

    FakeAdbServer();
    ~FakeAdbServer() override;

    quint16 port() const;
    // For readers and datasources: this server.
    AdbConnectionSettings connectionSettings() const;
    // Points the settings store's adbServer/adbPort at this server, for tests that go through the
    // application controller, which reads the store.
    void useForClient() const;

    // The framed request ("%04x" + text) the client must send next.
    static Step expectRequest(const QString &request);
    static Step reply(const QByteArray &bytes);
    static Step okay();
    static Step fail(const QByteArray &message);
    static Step close();
    // The transport selection a device reader opens with ("host:transport-any" without a serial),
    // answered "OKAY", then the reader's request.
    static Script transportThen(const QString &serial, const QString &request);

    void addScript(const Script &script);

    int connectionCount() const;
    // Every byte received on the connection with the given index (0 = first).
    QByteArray received(int connection) const;
    // One text per expectation that the client's bytes did not meet.
    QStringList mismatches() const;
    // True when every script has played up to its end.
    bool allScriptsDone() const;
    // Connections the client has closed.
    int clientClosedCount() const;

private:
    struct Connection
    {
        QTcpSocket *socket = nullptr;
        Script script;
        int step = 0;
        QByteArray pending; // received, not yet matched
        QByteArray all;
        bool done = false;
    };

    void onNewConnection();
    void advance(int index);

    QTcpServer *m_server;
    QList<Script> m_scripts;
    QList<Connection> m_connections;
    QStringList m_mismatches;
    int m_clientClosed = 0;
};

// A local port nothing listens on.
quint16 closedPort();

// A test whose client talks to a FakeAdbServer; it fails when the client's bytes did not meet the scripts.
class FakeAdbServerTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_TRUE(server.mismatches().isEmpty()) << server.mismatches().join(u'\n').toStdString();
    }

    FakeAdbServer server;
};
