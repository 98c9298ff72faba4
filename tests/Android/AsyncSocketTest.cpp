// SPDX-License-Identifier: MIT
#include "Android/AsyncSocket.h"
#include "support/AdbRecorders.h"
#include "support/FakeAdbServer.h"

#include <gtest/gtest.h>

#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>
#include <QThread>

#include <cerrno>
#include <functional>
#include <memory>

namespace {

// Every callback as one text, in order, with the thread it came on (AdbEventLog).
struct Recorder : AsyncSocketDelegate, AdbEventLog
{
    std::optional<AdbError> error;
    int disconnects = 0;
    std::function<void(QByteArrayView, long)> onRead;

    void didConnect(const QString &host, quint16) override { add("connect:" + host); }
    void didRead(QByteArrayView data, long tag) override
    {
        add(QStringLiteral("read:%1:%2").arg(tag).arg(QString::fromLatin1(data)));
        if (onRead)
            onRead(data, tag);
    }
    void didWrite(long tag) override { add(QStringLiteral("write:%1").arg(tag)); }
    void didDisconnect(const std::optional<AdbError> &e) override
    {
        ++disconnects;
        error = e;
        add(e ? QStringLiteral("disconnect:%1").arg(e->code) : QStringLiteral("disconnect:none"));
    }
};

// One accepted connection on 127.0.0.1, written to by the test.
struct Peer
{
    Peer() { server.listen(QHostAddress::LocalHost, 0); }
    bool accept()
    {
        if (!QTest::qWaitFor([this] { return server.hasPendingConnections(); }, 5000))
            return false;
        socket.reset(server.nextPendingConnection());
        return true;
    }
    bool waitClosed()
    {
        return QTest::qWaitFor([this] { return socket->state() == QAbstractSocket::UnconnectedState; }, 5000);
    }
    QTcpServer server;
    std::unique_ptr<QTcpSocket> socket;
};

// A socket with its recorder and a peer to connect to; the socket is disposed after the test.
class AsyncSocketTest : public ::testing::Test
{
protected:
    void TearDown() override
    {
        if (socket)
            socket->dispose();
    }
    bool connect() { return socket->connectToHost("127.0.0.1", peer.server.serverPort()); }
    bool waitEvents(qsizetype n, int timeoutMs = 5000)
    {
        return QTest::qWaitFor([&] { return rec.size() >= n; }, timeoutMs);
    }
    bool waitDisconnect(int timeoutMs = 5000)
    {
        return QTest::qWaitFor([&] { return rec.disconnects == 1; }, timeoutMs);
    }

    Peer peer;
    Recorder rec;
    AsyncSocket *socket = new AsyncSocket(&rec);
};

QByteArray numberedLines(const QByteArray &prefix, int count)
{
    QByteArray out;
    for (int i = 0; i < count; ++i)
        out += prefix + QByteArray::number(i) + '\n';
    return out;
}

} // namespace

TEST_F(AsyncSocketTest, ServesQueuedReadsInRequestOrderWithTheirTagsAndIgnoresEmptyOnes)
{
    ASSERT_TRUE(connect());
    // Reads queued before the connection is up wait for it; zero lengths and empty patterns are ignored.
    socket->readDataToLength(0, -1, 98);
    socket->readDataToData(QByteArray(), -1, 99);
    socket->readDataToLength(4, -1, 10);
    socket->readDataToData(AsyncSocket::lfData(), -1, 11);
    socket->readDataToData("IEND", -1, 12);
    socket->readDataToLength(2, -1, 13);
    ASSERT_TRUE(peer.accept());
    for (char c : QByteArray("OKAYline one\nxxIENxIEND\x12\x34zz")) { // one byte per event-loop turn
        peer.socket->write(&c, 1);
        peer.socket->flush();
        QCoreApplication::processEvents();
    }
    ASSERT_TRUE(waitEvents(5));
    EXPECT_EQ(rec.events().join(u'|'),
              "connect:127.0.0.1|read:10:OKAY|read:11:line one\n|read:12:xxIENxIEND|read:13:\x12\x34");
}

TEST_F(AsyncSocketTest, DeliversEveryLineOfALargeBurstOnceAndInOrder)
{
    qsizetype expected = 0;
    bool inOrder = true;
    rec.onRead = [&](QByteArrayView data, long) {
        inOrder = inOrder && data == QByteArray::number(expected++) + '\n';
        socket->readDataToData(AsyncSocket::lfData(), -1, 5);
    };
    ASSERT_TRUE(connect());
    socket->readDataToData(AsyncSocket::lfData(), -1, 5);
    ASSERT_TRUE(peer.accept());
    peer.socket->write(numberedLines("", 100000));
    ASSERT_TRUE(QTest::qWaitFor([&] { return expected == 100000; }, 20000));
    EXPECT_TRUE(inOrder);
}

TEST_F(AsyncSocketTest, ReadToLastByteTakesEveryWholeLineAtOnceAndKeepsThePartialOne)
{
    QByteArray received;
    int reads = 0;
    bool wholeLines = true;
    rec.onRead = [&](QByteArrayView data, long) {
        ++reads;
        wholeLines = wholeLines && data.endsWith('\n');
        received += data;
        socket->readDataToLastByte('\n', -1, 6);
    };
    ASSERT_TRUE(connect());
    socket->readDataToLastByte('\n', -1, 6);
    ASSERT_TRUE(peer.accept());
    // A burst far larger than one socket read, cut mid-line: the tail waits for its line feed.
    const QByteArray burst = numberedLines("line ", 50000);
    peer.socket->write(burst + "partial");
    ASSERT_TRUE(QTest::qWaitFor([&] { return received.size() == burst.size(); }, 20000));
    EXPECT_EQ(received, burst);
    EXPECT_TRUE(wholeLines);
    EXPECT_LT(reads, 5000) << "lines should arrive many at a time";
    peer.socket->write(" done\n");
    ASSERT_TRUE(QTest::qWaitFor([&] { return received.size() > burst.size(); }, 5000));
    EXPECT_EQ(received.sliced(burst.size()), QByteArray("partial done\n"));
}

TEST_F(AsyncSocketTest, ReadsLargerThanOneBufferfulArriveWholeEvenWhenThePeerClosesRightAfter)
{
    // The socket takes bytes in bounded chunks: a read to length, a pattern read and lines that span
    // many chunks must still arrive whole, and bytes sent just before a close must all be served.
    QList<QByteArray> got;
    rec.onRead = [&](QByteArrayView data, long) { got.append(data.toByteArray()); };
    ASSERT_TRUE(connect());
    socket->readDataToLength(3 << 20, -1, 1);
    socket->readDataToData("IEND", -1, 2);
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
    ASSERT_TRUE(waitDisconnect(20000));
    ASSERT_EQ(got.size(), 4);
    EXPECT_TRUE(got[0] == exact && got[1] == png && got[2] == longLine);
    EXPECT_EQ(got[3], "short\n");
    EXPECT_EQ(rec.error->code, AsyncSocket::ClosedError);
}

TEST_F(AsyncSocketTest, CompletesWritesInOrderWithTheirTags)
{
    ASSERT_TRUE(connect());
    socket->writeData("000c", -1, 1); // queued while connecting
    socket->writeData("host:devices", -1, 2);
    ASSERT_TRUE(peer.accept());
    ASSERT_TRUE(waitEvents(3));
    socket->writeData(QByteArray(1 << 20, 'x'), -1, 3);
    QByteArray all;
    EXPECT_TRUE(QTest::qWaitFor([&] { return (all += peer.socket->readAll()).size() >= 16 + (1 << 20); }, 5000));
    EXPECT_EQ(all.left(16), QByteArray("000chost:devices"));
    ASSERT_TRUE(waitEvents(4));
    EXPECT_EQ(rec.events().mid(1).join(u'|'), "write:1|write:2|write:3");
}

TEST_F(AsyncSocketTest, PeerCloseServesCompleteReadsThenReportsCode7AndDropsThePartialLine)
{
    rec.onRead = [&](QByteArrayView, long tag) { socket->readDataToData(AsyncSocket::lfData(), -1, tag + 1); };
    ASSERT_TRUE(connect());
    socket->readDataToData(AsyncSocket::lfData(), -1, 0);
    ASSERT_TRUE(peer.accept());
    peer.socket->write("a\nb\nno line feed");
    peer.socket->disconnectFromHost();
    ASSERT_TRUE(waitDisconnect());
    EXPECT_EQ(rec.events().join(u'|'), "connect:127.0.0.1|read:0:a\n|read:1:b\n|disconnect:7");
    EXPECT_EQ(rec.error->domain, AsyncSocket::errorDomain);
    EXPECT_FALSE(socket->isConnected());
}

TEST_F(AsyncSocketTest, RefusedConnectionCarriesTheSystemError)
{
    ASSERT_TRUE(socket->connectToHost("127.0.0.1", closedPort()));
    EXPECT_FALSE(socket->isConnected());
    ASSERT_TRUE(waitDisconnect());
    EXPECT_EQ(rec.events(), QStringList{QStringLiteral("disconnect:%1").arg(ECONNREFUSED)});
    EXPECT_EQ(rec.error->domain, "posix");
    EXPECT_EQ(rec.error->description, "Connection refused");
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
    ASSERT_TRUE(waitDisconnect());
    ASSERT_TRUE(peer.waitClosed()); // once the peer has seen the close, nothing can be read any more
    EXPECT_EQ(rec.events().join(u'|'), "connect:127.0.0.1|disconnect:none");
}

TEST_F(AsyncSocketTest, DisconnectWhileConnectingReportsWithoutError)
{
    // 192.0.2.1 (TEST-NET-1) never answers, so the attempt is still pending.
    ASSERT_TRUE(socket->connectToHost("192.0.2.1", 5037));
    socket->disconnect();
    ASSERT_TRUE(waitDisconnect());
    EXPECT_EQ(rec.events(), QStringList{"disconnect:none"});
}

TEST_F(AsyncSocketTest, ReadTimeoutClosesWithCode4AndNegativeMeansNone)
{
    ASSERT_TRUE(connect());
    socket->readDataToLength(4, -1, 1);
    ASSERT_TRUE(peer.accept());
    peer.socket->write("OKAY");
    ASSERT_TRUE(waitEvents(2));
    socket->readDataToLength(4, 0.05, 2);
    ASSERT_TRUE(waitDisconnect());
    EXPECT_EQ(rec.error->code, AsyncSocket::ReadTimeoutError);
}

TEST_F(AsyncSocketTest, RefusesToConnectTwiceOrWithoutDelegate)
{
    AdbError error;
    auto *orphan = new AsyncSocket(nullptr);
    EXPECT_FALSE(orphan->connectToHost("127.0.0.1", peer.server.serverPort(), &error));
    EXPECT_EQ(error.code, AsyncSocket::BadConfigError);
    orphan->dispose();

    EXPECT_FALSE(socket->connectToHost(QString(), peer.server.serverPort(), &error));
    EXPECT_EQ(error.code, AsyncSocket::BadParamError);
    EXPECT_TRUE(connect());
    EXPECT_FALSE(socket->connectToHost("127.0.0.1", peer.server.serverPort(), &error));
}

TEST_F(AsyncSocketTest, DisposingFromInsideACallbackStopsFurtherCallbacks)
{
    rec.onRead = [&](QByteArrayView, long) { std::exchange(socket, nullptr)->dispose(); };
    ASSERT_TRUE(connect());
    socket->readDataToLength(1, -1, 1);
    socket->readDataToLength(1, -1, 2);
    ASSERT_TRUE(peer.accept());
    peer.socket->write("ab");
    ASSERT_TRUE(waitEvents(2));
    ASSERT_TRUE(peer.waitClosed());
    EXPECT_EQ(rec.events().join(u'|'), "connect:127.0.0.1|read:1:a");
}

TEST_F(AsyncSocketTest, CallbacksArriveOnTheThreadThatConnected)
{
    socket->dispose(); // this test makes its socket on a worker
    socket = nullptr;
    QThread worker;
    worker.start();
    AsyncSocket *onWorker = nullptr;
    QObject anchor;
    anchor.moveToThread(&worker);
    QMetaObject::invokeMethod(&anchor, [&] {
        onWorker = new AsyncSocket(&rec);
        onWorker->connectToHost("127.0.0.1", peer.server.serverPort());
        onWorker->readDataToLength(4, -1, 1);
    });
    ASSERT_TRUE(peer.accept());
    peer.socket->write("OKAY");
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.size() == 2; }, 5000));
    onWorker->disconnect(); // from the test's thread: carried over to the worker
    ASSERT_TRUE(QTest::qWaitFor([&] { return rec.size() == 3; }, 5000));
    for (QThread *t : rec.threads())
        EXPECT_EQ(t, &worker);
    QMetaObject::invokeMethod(
        &anchor, [&] { onWorker->dispose(); }, Qt::BlockingQueuedConnection);
    worker.quit();
    worker.wait();
}
