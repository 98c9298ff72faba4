// SPDX-License-Identifier: MIT
// Seeded random replies from a hostile server: every run must end in the failure path the reader
// defines, with no crash, hang or leak (the sanitizer builds run this too).
#include "Android/AdbProtocol.h"
#include "Android/DeviceListReader.h"
#include "Android/LogReader.h"
#include "support/AdbReaderRun.h"

#include <gtest/gtest.h>

#include <QRandomGenerator>

namespace {

// Random bytes biased towards the protocol's own tokens, so the state machines get deep.
QByteArray hostileReply(QRandomGenerator &rng)
{
    static const QList<QByteArray> tokens = {"OKAY",     "FAIL", "0000", "0004", "000a",
                                             "00ff",     "zzzz", "\n",   "\r\n", "device not found",
                                             "\xff\xfe", "\xc3", "0x1",  " 1f"};
    QByteArray out;
    const int pieces = rng.bounded(0, 8);
    for (int i = 0; i < pieces; ++i) {
        if (rng.bounded(2) == 0) {
            out += tokens[rng.bounded(int(tokens.size()))];
        } else {
            const int n = rng.bounded(1, 12);
            for (int k = 0; k < n; ++k)
                out += char(rng.bounded(256));
        }
    }
    return out;
}

// What LogReader must report for a reply to its transport request that is not "OKAY". An empty
// message is never read, so it reports nothing.
QStringList expectedLogReaderEvents(const QByteArray &reply)
{
    QStringList events;
    const AdbProtocol::StatusReply status = AdbProtocol::parseStatusReply(reply);
    if (status.kind == AdbProtocol::StatusReply::Failed && !status.message.isEmpty()) {
        const QString message = AdbProtocol::stringFromData(status.message).value_or(QString());
        if (message.toLower().contains(QLatin1String("device not found")))
            events.append(QStringLiteral("notFound:logReader:2:") + message);
        else
            events.append(QStringLiteral("error:logReader:2:") + message);
    }
    events.append(QStringLiteral("stopped"));
    return events;
}

} // namespace

TEST(AdbReplyFuzz, LogReaderAlwaysEndsInItsFailurePath)
{
    QRandomGenerator rng(20240611);
    for (int round = 0; round < 300; ++round) {
        const QByteArray reply = hostileReply(rng);
        ReaderRun<LogReader, LogReaderRecorder> run({FakeAdbServer::expectRequest(QStringLiteral("host:transport:S")),
                                                     FakeAdbServer::reply(reply), FakeAdbServer::close()});
        run.start(QStringLiteral("S"));
        ASSERT_TRUE(waitUntil([&] { return run.rec.events().count(QStringLiteral("stopped")) > 0; }, 5000))
            << "round " << round << " reply " << reply.toHex().toStdString();
        const QStringList events = run.rec.events();
        if (!reply.startsWith("OKAY")) {
            EXPECT_EQ(events, expectedLogReaderEvents(reply)) << "reply " << reply.toHex().toStdString();
        } else {
            // The reply went on as the logcat stream's: whatever came, the run ends once, last.
            EXPECT_EQ(events.count(QStringLiteral("stopped")), 1);
            EXPECT_EQ(events.last(), QStringLiteral("stopped"));
        }
    }
}

TEST(AdbReplyFuzz, DeviceListReaderNeverReportsMoreThanOnce)
{
    QRandomGenerator rng(77);
    for (int round = 0; round < 300; ++round) {
        QByteArray reply = hostileReply(rng);
        if (rng.bounded(2) == 0)
            reply.prepend("OKAY");
        ReaderRun<DeviceListReader, DeviceListReaderRecorder> run(
            {FakeAdbServer::expectRequest(QStringLiteral("host:devices")), FakeAdbServer::reply(reply),
             FakeAdbServer::close()});
        const QStringList events = run.runToEnd();
        // Model of the reader: OKAY, four length digits, then exactly that many bytes.
        QStringList expected;
        if (reply.startsWith("OKAY") && reply.size() >= 8) {
            const quint32 length = AdbProtocol::hexDataToInteger(reply.mid(4, 4));
            if (length == 0)
                expected.append(QStringLiteral("failed:1"));
            else if (reply.size() >= 8 + qsizetype(length))
                expected.append(QStringLiteral("devices:") +
                                AdbProtocol::stringFromData(reply.mid(8, length)).value_or(QStringLiteral("<absent>")));
        }
        EXPECT_EQ(events, expected) << "reply " << reply.toHex().toStdString();
    }
}

TEST(AdbReplyFuzz, HexScannerAgreesWithAReferenceOnRandomText)
{
    QRandomGenerator rng(5);
    const QString alphabet = QStringLiteral(" \t\n0123456789abcdefABCDEFxXgz-+\u00a0");
    for (int round = 0; round < 5000; ++round) {
        QString text;
        const int n = rng.bounded(0, 12);
        for (int i = 0; i < n; ++i)
            text += alphabet[rng.bounded(int(alphabet.size()))];
        // Reference: strtoul-like over the same rules, with saturation.
        qsizetype i = 0;
        while (i < text.size() && text[i].isSpace())
            ++i;
        if (text.mid(i, 2).compare(QLatin1String("0x"), Qt::CaseInsensitive) == 0)
            i += 2;
        qsizetype end = i;
        while (end < text.size() && QStringLiteral("0123456789abcdefABCDEF").contains(text[end]))
            ++end;
        bool ok = false;
        const qulonglong big = end > i ? text.mid(i, end - i).toULongLong(&ok, 16) : 0;
        const quint32 expected = (end - i > 8 || big > 0xffffffffULL) ? 0xffffffffU : quint32(big);
        EXPECT_EQ(AdbProtocol::hexStringToInteger(text), expected) << text.toStdString();
    }
}
