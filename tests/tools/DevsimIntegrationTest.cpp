// SPDX-License-Identifier: MIT
// The device simulator as the real adb tool and server see it.
#include "support/AdbTestEnv.h"

#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTest>

namespace {

const QRegularExpression
    ThreadTime(QStringLiteral(R"(^(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}) +(\d+) +(\d+) ([VDIWEF]) (\S.*?) *: (.*)$)"));

QStringList words(const char *text)
{
    return QString::fromUtf8(text).split(u' ', Qt::SkipEmptyParts);
}

// The output's lines; a blank line inside stays one.
QStringList lines(const QByteArray &out)
{
    QStringList result = QString::fromUtf8(out).split(u'\n');
    if (result.last().isEmpty())
        result.removeLast();
    return result;
}

class DevsimTest : public AdbTest
{
protected:
    QString start(const char *options = "")
    {
        const QString serial = startDevice(words(options));
        EXPECT_FALSE(serial.isEmpty());
        return serial;
    }
    AdbTestEnv::AdbResult shell(const QString &serial, const QString &command)
    {
        return env().runAdbOn(serial, {QStringLiteral("shell"), command});
    }
    QByteArray dump(const QString &serial) { return env().runAdbOn(serial, words("logcat -d")).out; }
    // Runs `adb logcat` on serial until done(output) holds or the time is up.
    AdbTestEnv::AdbResult stream(const QString &serial, const std::function<bool(const QByteArray &)> &done,
                                 int timeoutMs)
    {
        return env().runAdbUntil(QStringList{QStringLiteral("-s"), serial} + words("logcat -v threadtime"), done,
                                 timeoutMs);
    }
};

} // namespace

// What only the simulator's own tests check: the model the server lists, a tap marking the next
// screenshot, unknown commands not found, the line-feed translation. Its processes, old-device "ps",
// screenshots, drops that return and restarts are walked through by the datasources' integration tests;
// the input commands it records, and clearing its log, by the input writers' and the readers'.
TEST_F(DevsimTest, ListsItsModelMarksTapsAndTranslatesLineFeeds)
{
    const QString serial = startDevice({"--screen-size", "270x480", "--model", "Quill Test 7"});
    const QString longList = env().runAdb(words("devices -l")).text();
    EXPECT_TRUE(longList.contains(QStringLiteral("model:Quill_Test_7"))) << longList.toStdString();
    const QImage before = QImage::fromData(shell(serial, QStringLiteral("screencap -p")).out, "PNG");
    ASSERT_EQ(before.size(), QSize(270, 480));
    shell(serial, QStringLiteral("input tap 100 300"));
    const QImage after = QImage::fromData(shell(serial, QStringLiteral("screencap -p")).out, "PNG");
    EXPECT_NE(after.pixel(100, 300), before.pixel(100, 300));
    EXPECT_EQ(shell(serial, QStringLiteral("frobnicate --now")).out,
              QByteArray("/system/bin/sh: frobnicate: not found\n"));
    // An old pty's translation: every line feed of a picture comes as CR LF.
    const QByteArray translated = shell(start("--crlf"), QStringLiteral("screencap -p")).out;
    EXPECT_EQ(translated.count('\n'), translated.count("\r\n"));
}

TEST_F(DevsimTest, ReplayedLogIsThreadtimeWithRisingTimesAndTheSameForTheSameSeed)
{
    const char *options = "--seed 7 --buffer 400 --rate 0 --lines 0";
    const QString serial = start(options);
    const QByteArray replayed = dump(serial);
    const QStringList log = lines(replayed);
    ASSERT_EQ(log.size(), 401);
    EXPECT_EQ(log.first(), QStringLiteral("--------- beginning of main"));

    QString previousTime;
    int json = 0, nonAscii = 0, longLines = 0;
    QSet<QString> tags, levels;
    for (qsizetype i = 1; i < log.size(); ++i) {
        const auto match = ThreadTime.match(log.at(i));
        ASSERT_TRUE(match.hasMatch()) << log.at(i).toStdString();
        EXPECT_GE(match.captured(1), previousTime) << "time went backwards at line " << i;
        previousTime = match.captured(1);
        EXPECT_GE(match.captured(3).toInt(), match.captured(2).toInt()) << "tid below its pid";
        levels.insert(match.captured(4));
        tags.insert(match.captured(5));
        const QString text = match.captured(6);
        json += text.contains(QLatin1String("{\"")) ? 1 : 0;
        nonAscii += std::any_of(text.begin(), text.end(), [](QChar c) { return c.unicode() > 127; }) ? 1 : 0;
        longLines += text.size() > 300 ? 1 : 0;
    }
    EXPECT_GE(tags.size(), 15);
    EXPECT_GE(levels.size(), 4);
    EXPECT_TRUE(json > 0 && nonAscii > 0 && longLines > 0) << json << " " << nonAscii << " " << longLines;
    // The same seed gives the same log on a second device.
    EXPECT_EQ(dump(start(options)), replayed);
}

TEST_F(DevsimTest, LiveStreamStopsAfterLineLimitButStaysOpen)
{
    const QString serial = start("--rate 0 --buffer 10 --lines 20000 --seed 3");
    // The marker, 10 replayed and 20000 live lines; waiting for one more must run into the timeout.
    const auto live = stream(
        serial, [](const QByteArray &out) { return out.count('\n') >= 20012; }, 3000);
    EXPECT_EQ(live.exitCode, -1) << "logcat ended by itself";
    const QStringList log = lines(live.out);
    ASSERT_EQ(log.size(), 20011);
    EXPECT_TRUE(live.out.endsWith('\n'));
    EXPECT_TRUE(ThreadTime.match(log.last()).hasMatch()) << log.last().toStdString();
}

TEST_F(DevsimTest, LinesFollowTheRateAndReachEveryReader)
{
    const QString serial = start("--rate 400 --buffer 0");
    // A second reader streams meanwhile: both see the device's lines, not lines of their own.
    QProcess other;
    other.setProcessEnvironment(env().adbEnvironment());
    other.start(env().adbPath(),
                QStringList{QStringLiteral("-P"), QString::number(env().serverPort()), QStringLiteral("-s"), serial} +
                    words("logcat -v threadtime"));
    QByteArray seen;
    const auto otherSees = [&](const QString &line) {
        return QTest::qWaitFor(
            [&] {
                seen += other.readAllStandardOutput();
                return lines(seen).contains(line);
            },
            15000);
    };
    ASSERT_TRUE(otherSees(QStringLiteral("--------- beginning of main"))); // it streams before the other starts
    const auto live = stream(
        serial, [](const QByteArray &out) { return out.count('\n') > 100; }, 15000);
    const QString probe = lines(live.out).value(30);
    EXPECT_TRUE(ThreadTime.match(probe).hasMatch()) << probe.toStdString();
    EXPECT_TRUE(otherSees(probe));
    other.kill();
    other.waitForFinished(2000);
}

TEST_F(DevsimTest, DroppedDeviceEndsItsStreamAndStaysAway)
{
    const QString serial = start("--drop-after 2");
    // logcat ends by itself when the device goes away.
    const auto live = stream(
        serial, [](const QByteArray &) { return false; }, 20000);
    EXPECT_NE(live.exitCode, -1) << "logcat still running";
    EXPECT_GT(live.out.count('\n'), 300);
    EXPECT_TRUE(env().waitForState(serial, QStringLiteral("offline"), 10000))
        << env().deviceState(serial).toStdString();
    EXPECT_NE(shell(serial, QStringLiteral("getprop ro.product.model")).exitCode, 0);
}
