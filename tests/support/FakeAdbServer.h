// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariant>

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
    // Points the client's adbServer/adbPort settings at this server.
    void useForClient() const;
    // The client's settings store (the keys the ADB client reads at connect).
    static void setClientSetting(const QString &key, const QVariant &value);
    static void clearClientSettings();

    // The framed request ("%04x" + text) the client must send next.
    static Step expectRequest(const QString &request);
    static Step reply(const QByteArray &bytes);
    // "FAIL" + four hex digits of the message length + the message.
    static Step fail(const QByteArray &message);
    static Step close();

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

// A test whose client talks to a FakeAdbServer: the client's settings point at it for the test, and
// the test fails when the client's bytes did not meet the scripts.
class FakeAdbServerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        FakeAdbServer::clearClientSettings();
        server.useForClient();
    }
    void TearDown() override
    {
        EXPECT_TRUE(server.mismatches().isEmpty()) << server.mismatches().join(u'\n').toStdString();
        FakeAdbServer::clearClientSettings();
    }

    FakeAdbServer server;
};
