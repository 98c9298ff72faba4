// SPDX-License-Identifier: MIT
// The session's reader slots with real readers on their threads, against a local server that
// accepts and never answers: a replaced reader's connection closes and its delegate hears nothing.
#include "Session/SessionReaders.h"

#include "Android/AdbSocketThread.h"
#include "support/AdbRecorders.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <gtest/gtest.h>

#include <atomic>

namespace {

struct SessionReadersTest : ::testing::Test
{
    QTcpServer server;
    QList<QTcpSocket *> connections;
    LogReaderRecorder recorder;

    void SetUp() override
    {
        ASSERT_TRUE(server.listen(QHostAddress::LocalHost));
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this] {
            while (QTcpSocket *c = server.nextPendingConnection())
                connections << c;
        });
    }
    std::unique_ptr<AdbSocketThread> reader()
    {
        auto log = std::make_unique<LogReader>();
        AdbConnectionSettings settings;
        settings.port = server.serverPort();
        log->setConnectionSettings(settings);
        log->setDelegate(&recorder);
        return std::make_unique<AdbSocketThread>(std::move(log), QStringLiteral("test reader"));
    }
    bool closed(int connection)
    {
        return waitUntil([&] { return connections.size() > connection &&
                                      connections[connection]->state() == QAbstractSocket::UnconnectedState; },
                         5000);
    }
};

} // namespace

TEST_F(SessionReadersTest, ReplacedReadersEndSilentlyAndAClosedSessionTakesNone)
{
    SessionReaders readers;
    readers.replace(SessionReaders::Log, reader());
    ASSERT_TRUE(waitUntil([&] { return connections.size() == 1; }, 5000));

    // Work posted to the slot runs on the current reader's thread, which is not a retired one.
    std::atomic<int> asked{0}, retired{0};
    readers.post(SessionReaders::Log, [&](AdbSocket &) {
        retired = readers.isRetiredLogReaderThread() ? 1 : 0;
        ++asked;
    });
    ASSERT_TRUE(waitUntil([&] { return asked == 1; }, 5000));
    EXPECT_EQ(retired, 0);
    EXPECT_FALSE(readers.isRetiredLogReaderThread()); // the GUI thread

    readers.replace(SessionReaders::Log, reader());
    EXPECT_TRUE(closed(0)) << "the replaced reader is deleted on its thread";
    ASSERT_TRUE(waitUntil([&] { return connections.size() == 2; }, 5000));

    readers.close(); // returns once every retired reader has let go
    EXPECT_TRUE(closed(1));
    readers.replace(SessionReaders::Pid, reader()); // after close: retired at once, never in the slot
    readers.post(SessionReaders::Pid, [&](AdbSocket &) { ++asked; });
    readers.close(); // would run the work first, were the reader in the slot
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(recorder.events(), QStringList()) << "a retired reader's delegate heard from it";
}
