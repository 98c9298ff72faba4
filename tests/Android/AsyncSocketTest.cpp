// SPDX-License-Identifier: MIT
#include "Android/AsyncSocket.h"
#include "support/FakeAdbServer.h"

#include <gtest/gtest.h>

#include <QMutex>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <cerrno>
#include <functional>
#include <memory>

namespace {

struct Recorder : AsyncSocketDelegate
{
    QStringList events;
    std::optional<AdbError> error;
    int disconnects = 0;
    QList<QThread *> threads; // guarded by mutex: the thread test reads it from another thread
    mutable QMutex mutex;
    std::function<void(QByteArrayView, long)> onRead;

    void noteThread()
    {
        QMutexLocker lock(&mutex);
        threads.append(QThread::currentThread());
    }
    qsizetype threadCount() const
    {
        QMutexLocker lock(&mutex);
        return threads.size();
    }
    void didConnect(const QString &host, quint16) override
    {
        noteThread();
        events.append(QStringLiteral("connect:%1").arg(host));
    }
    void didRead(QByteArrayView data, long tag) override
    {
        noteThread();
        events.append(QStringLiteral("read:%1:%2").arg(tag).arg(QString::fromLatin1(data)));
        if (onRead)
            onRead(data, tag);
    }
    void didWrite(long tag) override
    {
        noteThread();
        events.append(QStringLiteral("write:%1").arg(tag));
    }
    void didDisconnect(const std::optional<AdbError> &e) override
    {
        noteThread();
        ++disconnects;
        error = e;
        events.append(e ? QStringLiteral("disconnect:%1").arg(e->code) : QStringLiteral("disconnect:none"));
    }
};

// One accepted connection on 127.0.0.1, written to by the test.
class Peer
{
public:
    Peer() { server.listen(QHostAddress::LocalHost, 0); }
    quint16 port() const { return server.serverPort(); }
    bool accept()
    {
        if (!QTest::qWaitFor([this] { return server.hasPendingConnections(); }, 5000))
            return false;
        socket.reset(server.nextPendingConnection());
        return true;
    }
    // Writes one byte per event-loop turn, so the client sees the bytes in many small reads.
    void drip(const QByteArray &bytes)
    {
        for (char c : bytes) {
            socket->write(&c, 1);
            socket->flush();
            QCoreApplication::processEvents();
        }
    }
    QByteArray readAllReceived(int count)
    {
        QByteArray all;
        (void)QTest::qWaitFor(
            [&] {
                all += socket->readAll();
                return all.size() >= count;
            },
            5000);
        return all;
    }
    QTcpServer server;
    std::unique_ptr<QTcpSocket> socket;
};

// A socket with its recorder and a peer to connect to; the socket is disposed after the test.
class AsyncSocketTest : public ::testing::Test
{
protected:
    void TearDown() override { socket->dispose(); }
    bool connect() { return socket->connectToHost(QStringLiteral("127.0.0.1"), peer.port()); }

    Peer peer;
    Recorder rec;
    AsyncSocket *socket = new AsyncSocket(&rec);
};

} // namespace

TEST_F(AsyncSocketTest, ServesQueuedReadsInRequestOrderWithTheirTags)
{
    ASSERT_TRUE(connect());
    // Reads queued before the connection is up wait for it.
    socket->readDataToLength(4, -1, 10);
    socket->readDataToData(AsyncSocket::lfData(), -1, 11);
    socket->readDataToData(QByteArray("IEND"), -1, 12);
    socket->readDataToLength(2, -1, 13);
    ASSERT_TRUE(peer.accept());
    peer.drip("OKAYline one\nxxIENxIEND\x12\x34zz");
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.events.size() >= 5; }, 5000));
    EXPECT_EQ(rec.events, (QStringList{QStringLiteral("connect:127.0.0.1"), QStringLiteral("read:10:OKAY"),
                                       QStringLiteral("read:11:line one\n"), QStringLiteral("read:12:xxIENxIEND"),
                                       QStringLiteral("read:13:\x12\x34")}));
}

TEST_F(AsyncSocketTest, DeliversEveryLineOfALargeBurstOnceAndInOrder)
{
    qsizetype expected = 0;
    bool inOrder = true;
    rec.onRead = [&](QByteArrayView data, long) {
        inOrder = inOrder && data == QByteArray::number(expected) + '\n';
        ++expected;
        socket->readDataToData(AsyncSocket::lfData(), -1, 5);
    };
    ASSERT_TRUE(connect());
    socket->readDataToData(AsyncSocket::lfData(), -1, 5);
    ASSERT_TRUE(peer.accept());
    QByteArray burst;
    constexpr int lines = 100000;
    for (int i = 0; i < lines; ++i)
        burst += QByteArray::number(i) + '\n';
    peer.socket->write(burst);
    ASSERT_TRUE(QTest::qWaitFor([&] { return expected == lines; }, 20000));
    EXPECT_TRUE(inOrder);
}

TEST_F(AsyncSocketTest, ReadToLastByteTakesEveryWholeLineAtOnceAndKeepsThePartialOne)
{
    QByteArray received;
    int reads = 0;
    bool wholeLines = true;
    rec.onRead = [&](QByteArrayView data, long tag) {
        if (tag != 6)
            return;
        ++reads;
        wholeLines = wholeLines && data.endsWith('\n');
        received += data;
        socket->readDataToLastByte('\n', -1, 6);
    };
    ASSERT_TRUE(connect());
    socket->readDataToLastByte('\n', -1, 6);
    ASSERT_TRUE(peer.accept());
    // A burst far larger than one socket read, cut mid-line: the tail waits for its line feed.
    QByteArray burst;
    constexpr int lines = 50000;
    for (int i = 0; i < lines; ++i)
        burst += "line " + QByteArray::number(i) + '\n';
    peer.socket->write(burst + "partial");
    ASSERT_TRUE(QTest::qWaitFor([&] { return received.size() == burst.size(); }, 20000));
    EXPECT_EQ(received, burst);
    EXPECT_TRUE(wholeLines);
    EXPECT_LT(reads, lines / 10) << "lines should arrive many at a time";
    // The partial line comes whole once its line feed arrives, alone.
    peer.socket->write(" done\n");
    ASSERT_TRUE(QTest::qWaitFor([&] { return received.size() > burst.size(); }, 5000));
    EXPECT_EQ(received.sliced(burst.size()), QByteArray("partial done\n"));
}

TEST(AsyncSocket, ReadsLargerThanOneBufferfulArriveWholeEvenWhenThePeerClosesRightAfter)
{
    // The socket takes bytes in bounded chunks: a read to length, a pattern read and lines that span
    // many chunks must still arrive whole, and bytes sent just before a close must all be served.
    Peer peer;
    Recorder rec;
    QList<QByteArray> got;
    auto *socket = new AsyncSocket(&rec);
    rec.onRead = [&](QByteArrayView data, long) { got.append(data.toByteArray()); };
    ASSERT_TRUE(socket->connectToHost(QStringLiteral("127.0.0.1"), peer.port()));
    socket->readDataToLength(3 << 20, -1, 1);
    socket->readDataToData(QByteArray("IEND"), -1, 2);
    socket->readDataToData(AsyncSocket::lfData(), -1, 3);
    socket->readDataToData(AsyncSocket::lfData(), -1, 4);
    ASSERT_TRUE(peer.accept());
    QByteArray exact(3 << 20, 'a');
    for (qsizetype i = 0; i < exact.size(); i += 4099)
        exact[i] = char('0' + i % 10);
    const QByteArray png = QByteArray(700 * 1024, 'p') + "IEND";
    const QByteArray longLine = QByteArray(500 * 1024, 'l') + '\n';
    peer.socket->write(exact + png + longLine + "short\n" + "tail without line feed");
    peer.socket->disconnectFromHost();
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.disconnects == 1; }, 20000));
    ASSERT_EQ(got.size(), 4);
    EXPECT_TRUE(got[0] == exact);
    EXPECT_TRUE(got[1] == png);
    EXPECT_TRUE(got[2] == longLine);
    EXPECT_EQ(got[3], "short\n");
    EXPECT_EQ(rec.error->code, AsyncSocket::ClosedError);
    socket->dispose();
}

TEST_F(AsyncSocketTest, CompletesWritesInOrderWithTheirTags)
{
    ASSERT_TRUE(connect());
    socket->writeData("000c", -1, 1); // queued while connecting
    socket->writeData("host:devices", -1, 2);
    ASSERT_TRUE(peer.accept());
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.events.size() >= 3; }, 5000));
    socket->writeData(QByteArray(1 << 20, 'x'), -1, 3);
    EXPECT_EQ(peer.readAllReceived(16 + (1 << 20)).left(16), QByteArray("000chost:devices"));
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.events.size() >= 4; }, 5000));
    EXPECT_EQ(rec.events.mid(1),
              (QStringList{QStringLiteral("write:1"), QStringLiteral("write:2"), QStringLiteral("write:3")}));
}

TEST_F(AsyncSocketTest, PeerCloseServesCompleteReadsThenReportsCode7AndDropsThePartialLine)
{
    rec.onRead = [&](QByteArrayView, long tag) { socket->readDataToData(AsyncSocket::lfData(), -1, tag + 1); };
    ASSERT_TRUE(connect());
    socket->readDataToData(AsyncSocket::lfData(), -1, 0);
    ASSERT_TRUE(peer.accept());
    peer.socket->write("a\nb\nno line feed");
    peer.socket->disconnectFromHost();
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.disconnects == 1; }, 5000));
    EXPECT_EQ(rec.events, (QStringList{QStringLiteral("connect:127.0.0.1"), QStringLiteral("read:0:a\n"),
                                       QStringLiteral("read:1:b\n"), QStringLiteral("disconnect:7")}));
    EXPECT_EQ(rec.error->domain, AsyncSocket::errorDomain);
    EXPECT_FALSE(socket->isConnected());
}

TEST_F(AsyncSocketTest, PeerCloseWithNoReadPendingStillEndsTheConnection)
{
    ASSERT_TRUE(connect());
    ASSERT_TRUE(peer.accept());
    peer.socket->write("unread bytes");
    peer.socket->disconnectFromHost();
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.disconnects == 1; }, 5000));
    EXPECT_EQ(rec.error->code, AsyncSocket::ClosedError);
}

TEST(AsyncSocket, RefusedConnectionCarriesTheSystemError)
{
    Recorder rec;
    auto *socket = new AsyncSocket(&rec);
    ASSERT_TRUE(socket->connectToHost(QStringLiteral("127.0.0.1"), closedPort()));
    EXPECT_FALSE(socket->isConnected());
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.disconnects == 1; }, 5000));
    EXPECT_EQ(rec.events, QStringList{QStringLiteral("disconnect:%1").arg(ECONNREFUSED)});
    EXPECT_EQ(rec.error->domain, QStringLiteral("posix"));
    EXPECT_EQ(rec.error->description, QStringLiteral("Connection refused"));
    socket->dispose();
}

TEST_F(AsyncSocketTest, LocalDisconnectReportsOnceWithoutErrorAndDropsQueuedReads)
{
    ASSERT_TRUE(connect());
    socket->readDataToLength(4, -1, 1);
    ASSERT_TRUE(peer.accept());
    ASSERT_TRUE(QTest::qWaitFor([&] { return socket->isConnected(); }, 5000));
    socket->disconnect();
    EXPECT_FALSE(socket->isConnected());
    EXPECT_EQ(rec.disconnects, 0); // reported from the event loop, not from inside disconnect()
    socket->disconnect();
    peer.socket->write("OKAY");
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.disconnects == 1; }, 5000));
    EXPECT_FALSE(rec.error.has_value());
    // Once the peer has seen the close, nothing can be read any more.
    ASSERT_TRUE(QTest::qWaitFor([&] { return peer.socket->state() == QAbstractSocket::UnconnectedState; }, 5000));
    EXPECT_EQ(rec.events.size(), 2);
    EXPECT_EQ(rec.events.last(), QStringLiteral("disconnect:none"));
}

TEST(AsyncSocket, DisconnectWhileConnectingReportsWithoutError)
{
    Recorder rec;
    auto *socket = new AsyncSocket(&rec);
    // 192.0.2.1 (TEST-NET-1) never answers, so the attempt is still pending.
    ASSERT_TRUE(socket->connectToHost(QStringLiteral("192.0.2.1"), 5037));
    socket->disconnect();
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.disconnects == 1; }, 5000));
    EXPECT_EQ(rec.events, QStringList{QStringLiteral("disconnect:none")});
    socket->dispose();
}

TEST_F(AsyncSocketTest, ZeroLengthReadsAndEmptyPatternsAreIgnored)
{
    ASSERT_TRUE(connect());
    socket->readDataToLength(0, -1, 1);
    socket->readDataToData(QByteArray(), -1, 2);
    socket->readDataToLength(2, -1, 3);
    ASSERT_TRUE(peer.accept());
    peer.socket->write("ab");
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.events.size() >= 2; }, 5000));
    EXPECT_EQ(rec.events.mid(1), QStringList{QStringLiteral("read:3:ab")});
}

TEST_F(AsyncSocketTest, ReadTimeoutClosesWithCode4AndNegativeMeansNone)
{
    ASSERT_TRUE(connect());
    socket->readDataToLength(4, -1, 1);
    ASSERT_TRUE(peer.accept());
    peer.socket->write("OKAY");
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.events.size() == 2; }, 5000));
    socket->readDataToLength(4, 0.05, 2);
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.disconnects == 1; }, 5000));
    EXPECT_EQ(rec.error->code, AsyncSocket::ReadTimeoutError);
}

TEST_F(AsyncSocketTest, RefusesToConnectTwiceOrWithoutDelegate)
{
    AdbError error;
    auto *orphan = new AsyncSocket(nullptr);
    EXPECT_FALSE(orphan->connectToHost(QStringLiteral("127.0.0.1"), peer.port(), &error));
    EXPECT_EQ(error.code, AsyncSocket::BadConfigError);
    orphan->dispose();

    EXPECT_FALSE(socket->connectToHost(QString(), peer.port(), &error));
    EXPECT_EQ(error.code, AsyncSocket::BadParamError);
    EXPECT_TRUE(socket->connectToHost(QStringLiteral("127.0.0.1"), peer.port(), &error));
    EXPECT_FALSE(socket->connectToHost(QStringLiteral("127.0.0.1"), peer.port(), &error));
}

TEST(AsyncSocket, DisposingFromInsideACallbackStopsFurtherCallbacks)
{
    Peer peer;
    Recorder rec;
    auto *socket = new AsyncSocket(&rec);
    rec.onRead = [&](QByteArrayView, long) { socket->dispose(); };
    ASSERT_TRUE(socket->connectToHost(QStringLiteral("127.0.0.1"), peer.port()));
    socket->readDataToLength(1, -1, 1);
    socket->readDataToLength(1, -1, 2);
    ASSERT_TRUE(peer.accept());
    peer.socket->write("ab");
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.events.size() >= 2; }, 5000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return peer.socket->state() == QAbstractSocket::UnconnectedState; }, 5000));
    EXPECT_EQ(rec.events.size(), 2);
    EXPECT_EQ(rec.events.last(), QStringLiteral("read:1:a"));
}

TEST(AsyncSocket, CallbacksArriveOnTheThreadThatConnected)
{
    Peer peer;
    Recorder rec;
    QThread worker;
    worker.start();
    AsyncSocket *socket = nullptr;
    QObject anchor;
    anchor.moveToThread(&worker);
    QMetaObject::invokeMethod(&anchor, [&] {
        socket = new AsyncSocket(&rec);
        socket->connectToHost(QStringLiteral("127.0.0.1"), peer.port());
        socket->readDataToLength(4, -1, 1);
    });
    ASSERT_TRUE(peer.accept());
    peer.socket->write("OKAY");
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.threadCount() == 2; }, 5000));
    socket->disconnect(); // from the test's thread: carried over to the worker
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.threadCount() == 3; }, 5000));
    for (QThread *t : rec.threads)
        EXPECT_EQ(t, &worker);
    QMetaObject::invokeMethod(
        &anchor, [&] { socket->dispose(); }, Qt::BlockingQueuedConnection);
    worker.quit();
    worker.wait();
}
