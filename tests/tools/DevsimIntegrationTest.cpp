// SPDX-License-Identifier: MIT
// The device simulator as the real adb tool and server see it.
#include "support/AdbTestEnv.h"

#include <QFile>
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

QSet<QString> pidsOf(const QString &psOutput)
{
    QSet<QString> pids;
    const QStringList rows = psOutput.split(u'\n', Qt::SkipEmptyParts);
    for (qsizetype i = 1; i < rows.size(); ++i)
        pids.insert(rows.at(i).split(u' ', Qt::SkipEmptyParts).value(1));
    return pids;
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

TEST_F(DevsimTest, ServerListsDeviceWithItsModelAndFeatures)
{
    const QString serial = startDevice({QStringLiteral("--model"), QStringLiteral("Quill Test 7")});
    ASSERT_TRUE(serial.startsWith(QLatin1String("127.0.0.1:"))) << serial.toStdString();
    EXPECT_EQ(env().deviceState(serial), QStringLiteral("device"));
    const QString longList = env().runAdb(words("devices -l")).text();
    EXPECT_TRUE(longList.contains(QStringLiteral("model:Quill_Test_7"))) << longList.toStdString();
    // Without shell_v2 the server sends plain "shell:" services, which is what the viewer speaks.
    const QString features = env().runAdbOn(serial, words("features")).text();
    EXPECT_TRUE(features.contains(QLatin1String("cmd"))) << features.toStdString();
    EXPECT_FALSE(features.contains(QLatin1String("shell_v2")));
    const auto model = shell(serial, QStringLiteral("getprop ro.product.model"));
    EXPECT_EQ(model.exitCode, 0);
    EXPECT_EQ(model.out, QByteArray("Quill Test 7\n"));
}

TEST_F(DevsimTest, ReplayedLogIsThreadtimeWithKnownPidsAndRisingTimesAndClears)
{
    const char *options = "--seed 7 --buffer 400 --rate 0 --lines 0";
    const QString serial = start(options);
    const QByteArray replayed = dump(serial);
    const QStringList log = lines(replayed);
    ASSERT_EQ(log.size(), 401);
    EXPECT_EQ(log.first(), QStringLiteral("--------- beginning of main"));

    const QSet<QString> pids = pidsOf(shell(serial, QStringLiteral("ps -A")).text());
    QString previousTime;
    int json = 0, nonAscii = 0, longLines = 0;
    QSet<QString> tags, levels;
    for (qsizetype i = 1; i < log.size(); ++i) {
        const auto match = ThreadTime.match(log.at(i));
        ASSERT_TRUE(match.hasMatch()) << log.at(i).toStdString();
        EXPECT_GE(match.captured(1), previousTime) << "time went backwards at line " << i;
        previousTime = match.captured(1);
        EXPECT_TRUE(pids.contains(match.captured(2))) << "pid not in ps: " << match.captured(2).toStdString();
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
    EXPECT_GT(json, 0);
    EXPECT_GT(nonAscii, 0);
    EXPECT_GT(longLines, 0);
    // The same seed gives the same log on a second device.
    EXPECT_EQ(dump(start(options)), replayed);

    const auto clear = shell(serial, QStringLiteral("exec logcat -c"));
    EXPECT_EQ(clear.exitCode, 0);
    EXPECT_TRUE(clear.out.isEmpty());
    EXPECT_EQ(lines(dump(serial)), QStringList{QStringLiteral("--------- beginning of main")});
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
    const QStringList args =
        QStringList{QStringLiteral("-P"), QString::number(env().serverPort()), QStringLiteral("-s"), serial} +
        words("logcat -v threadtime");
    // Two readers at once, plus a short command on the same device while they stream.
    QProcess first, second;
    for (QProcess *reader : {&first, &second}) {
        reader->setProcessEnvironment(env().adbEnvironment());
        reader->start(env().adbPath(), args);
    }
    QByteArray a, b;
    const auto readBoth = [&](qsizetype linesA, qsizetype linesB) {
        return QTest::qWaitFor(
            [&] {
                a += first.readAllStandardOutput();
                b += second.readAllStandardOutput();
                return a.count('\n') > linesA && b.count('\n') > linesB;
            },
            15000);
    };
    ASSERT_TRUE(readBoth(50, 50));
    EXPECT_EQ(shell(serial, QStringLiteral("getprop ro.product.model")).out, QByteArray("Pixel Sim\n"));
    EXPECT_TRUE(readBoth(a.count('\n') + 20, 0)) << "the stream stalled";
    for (QProcess *reader : {&first, &second}) {
        reader->kill();
        reader->waitForFinished(2000);
    }
    // Both saw the same lines (the log is the device's, not the reader's).
    const QString probe = lines(a).value(30);
    EXPECT_TRUE(ThreadTime.match(probe).hasMatch()) << probe.toStdString();
    EXPECT_TRUE(lines(b).contains(probe));
}

TEST_F(DevsimTest, ProcessListOnCurrentAndOldDeviceAndTwoDevicesAreAmbiguous)
{
    const QString current = start();
    const QString old = start("--old-device");
    const QString table = shell(current, QStringLiteral("ps -A")).text();
    EXPECT_TRUE(table.startsWith(QLatin1String("USER "))) << table.left(200).toStdString();
    EXPECT_TRUE(table.contains(QLatin1String(" com.example.shop\n")));
    EXPECT_TRUE(pidsOf(table).contains(QStringLiteral("4711")));

    const QString refused = shell(old, QStringLiteral("ps -A")).text();
    EXPECT_LT(refused.size(), 100);
    EXPECT_TRUE(refused.contains(QLatin1String("bad pid"))) << refused.toStdString();
    EXPECT_TRUE(pidsOf(shell(old, QStringLiteral("ps")).text()).contains(QStringLiteral("4711")));

    const auto unqualified = env().runAdb(words("shell getprop ro.product.model"));
    EXPECT_NE(unqualified.exitCode, 0);
    EXPECT_TRUE(unqualified.err.contains("more than one device")) << unqualified.err.toStdString();
}

TEST_F(DevsimTest, ScreencapIsPngAndCrlfDeviceTranslatesLineFeeds)
{
    const QString serial = start("--screen-size 270x480");
    const QByteArray png = shell(serial, QStringLiteral("screencap -p")).out;
    const QImage image = QImage::fromData(png, "PNG");
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), QSize(270, 480));
    // Every frame is new (its counter), and a tap draws its mark into the next one.
    const QImage second = QImage::fromData(shell(serial, QStringLiteral("screencap -p")).out, "PNG");
    EXPECT_NE(second, image);
    const QRgb before = second.pixel(100, 300);
    shell(serial, QStringLiteral("input tap 100 300"));
    EXPECT_NE(QImage::fromData(shell(serial, QStringLiteral("screencap -p")).out, "PNG").pixel(100, 300), before);

    // A first frame of the same size, through the translation.
    const QByteArray translated = shell(start("--crlf --screen-size 270x480"), QStringLiteral("screencap -p")).out;
    EXPECT_EQ(translated.size(), png.size() + png.count('\n'));
    EXPECT_EQ(QByteArray(translated).replace("\r\n", "\n"), png);
}

TEST_F(DevsimTest, InputCommandsAreRecordedAndUnknownCommandsAreNotFound)
{
    const QString serial = start();
    const QStringList commands = {QStringLiteral("input text a%sb"), QStringLiteral("input keyevent 3 4 "),
                                  QStringLiteral("input tap 10 21"), QStringLiteral("input swipe 10 21 300 400 100")};
    for (const QString &command : commands) {
        const auto result = shell(serial, command);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_TRUE(result.out.isEmpty()) << result.out.toStdString();
    }
    QFile log(env().inputLogPath(serial));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(log.readAll()), commands.join(u'\n') + u'\n');
    EXPECT_EQ(shell(serial, QStringLiteral("frobnicate --now")).out,
              QByteArray("/system/bin/sh: frobnicate: not found\n"));
}

TEST_F(DevsimTest, DroppedDeviceEndsItsStreamAndGoesOffline)
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

TEST_F(DevsimTest, DeviceThatReturnsIsOnlineAgainQuickly)
{
    const QString serial = start("--drop-after 1 --return-after 1");
    ASSERT_TRUE(QTest::qWaitFor([&] { return env().deviceState(serial) != QStringLiteral("device"); }, 10000));
    EXPECT_TRUE(env().waitForState(serial, QStringLiteral("device"), 10000)) << env().deviceLog(serial).toStdString();
    EXPECT_EQ(shell(serial, QStringLiteral("getprop ro.product.model")).out, QByteArray("Pixel Sim\n"));
}

TEST_F(DevsimTest, RestartedDeviceKeepsItsSerial)
{
    const QString serial = start("--model Phoenix");
    ASSERT_TRUE(env().stopDevice(serial));
    EXPECT_TRUE(env().waitForState(serial, QStringLiteral("offline"), 10000));
    ASSERT_TRUE(env().restartDevice(serial)) << env().errorString().toStdString();
    EXPECT_EQ(shell(serial, QStringLiteral("getprop ro.product.model")).out, QByteArray("Phoenix\n"));
    ASSERT_TRUE(env().removeDevice(serial));
    EXPECT_TRUE(env().deviceState(serial).isEmpty());
}
