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
const QRegularExpression &threadtime()
{
    static const QRegularExpression re(
        QStringLiteral(R"(^(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3}) +(\d+) +(\d+) ([VDIWEF]) (\S.*?) *: (.*)$)"));
    return re;
}

QStringList lines(const QByteArray &out)
{
    QStringList result = QString::fromUtf8(out).split(u'\n');
    if (!result.isEmpty() && result.last().isEmpty())
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

auto lineCountReaches(qsizetype count)
{
    return [count](const QByteArray &out) { return out.count('\n') >= count; };
}

class DevsimTest : public AdbTest
{
};
} // namespace

TEST_F(DevsimTest, ServerListsDeviceWithItsModel)
{
    const QString serial = startDevice({QStringLiteral("--model"), QStringLiteral("Quill Test 7")});
    ASSERT_FALSE(serial.isEmpty());
    EXPECT_TRUE(serial.startsWith(QLatin1String("127.0.0.1:")));
    EXPECT_EQ(env().deviceState(serial), QStringLiteral("device"));

    const QString longList = env().runAdb({QStringLiteral("devices"), QStringLiteral("-l")}).text();
    EXPECT_TRUE(longList.contains(QStringLiteral("model:Quill_Test_7"))) << longList.toStdString();

    // Without shell_v2 the server sends plain "shell:" services, which is what the viewer speaks.
    const QString features = env().runAdbOn(serial, {QStringLiteral("features")}).text();
    EXPECT_TRUE(features.contains(QLatin1String("cmd"))) << features.toStdString();
    EXPECT_FALSE(features.contains(QLatin1String("shell_v2")));

    const auto model = env().runAdbOn(serial, {QStringLiteral("shell"), QStringLiteral("getprop"),
                                               QStringLiteral("ro.product.model")});
    EXPECT_EQ(model.exitCode, 0);
    EXPECT_EQ(model.out, QByteArray("Quill Test 7\n"));
}

TEST_F(DevsimTest, ReplayedLogIsThreadtimeWithKnownPidsAndRisingTimes)
{
    const QStringList options = {QStringLiteral("--seed"), QStringLiteral("7"), QStringLiteral("--buffer"),
                                 QStringLiteral("400"), QStringLiteral("--rate"), QStringLiteral("0"),
                                 QStringLiteral("--lines"), QStringLiteral("0")};
    const QString serial = startDevice(options);
    ASSERT_FALSE(serial.isEmpty());

    const auto dump = env().runAdbOn(serial, {QStringLiteral("logcat"), QStringLiteral("-d")});
    ASSERT_EQ(dump.exitCode, 0);
    const QStringList log = lines(dump.out);
    ASSERT_EQ(log.size(), 401);
    EXPECT_EQ(log.first(), QStringLiteral("--------- beginning of main"));

    const QSet<QString> pids =
        pidsOf(env().runAdbOn(serial, {QStringLiteral("shell"), QStringLiteral("ps"), QStringLiteral("-A")}).text());
    QString previousTime;
    int json = 0, nonAscii = 0, longLines = 0;
    QSet<QString> tags, levels;
    for (qsizetype i = 1; i < log.size(); ++i) {
        const auto match = threadtime().match(log.at(i));
        ASSERT_TRUE(match.hasMatch()) << log.at(i).toStdString();
        EXPECT_GE(match.captured(1), previousTime) << "time went backwards at line " << i;
        previousTime = match.captured(1);
        EXPECT_TRUE(pids.contains(match.captured(2))) << "pid not in ps: " << match.captured(2).toStdString();
        const int pid = match.captured(2).toInt();
        const int tid = match.captured(3).toInt();
        EXPECT_GE(tid, pid);
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
    const QString twin = startDevice(options);
    ASSERT_FALSE(twin.isEmpty());
    EXPECT_EQ(env().runAdbOn(twin, {QStringLiteral("logcat"), QStringLiteral("-d")}).out, dump.out);
}

TEST_F(DevsimTest, LiveStreamStopsAfterLineLimitButStaysOpen)
{
    const QString serial =
        startDevice({QStringLiteral("--rate"), QStringLiteral("0"), QStringLiteral("--buffer"), QStringLiteral("10"),
                     QStringLiteral("--lines"), QStringLiteral("20000"), QStringLiteral("--seed"), QStringLiteral("3")});
    ASSERT_FALSE(serial.isEmpty());
    // The marker, 10 replayed and 20000 live lines; waiting for one more must run into the timeout.
    const auto stream = env().runAdbUntil(
        {QStringLiteral("-s"), serial, QStringLiteral("logcat"), QStringLiteral("-v"), QStringLiteral("threadtime")},
        lineCountReaches(20012), 3000);
    EXPECT_EQ(stream.exitCode, -1) << "logcat ended by itself";
    const QStringList log = lines(stream.out);
    ASSERT_EQ(log.size(), 20011);
    EXPECT_TRUE(stream.out.endsWith('\n'));
    for (qsizetype i = 1; i < log.size(); i += 97)
        EXPECT_TRUE(threadtime().match(log.at(i)).hasMatch()) << log.at(i).toStdString();
}

TEST_F(DevsimTest, LinesFollowTheRateAndReachEveryReader)
{
    const QString serial = startDevice(
        {QStringLiteral("--rate"), QStringLiteral("400"), QStringLiteral("--buffer"), QStringLiteral("0")});
    ASSERT_FALSE(serial.isEmpty());
    const QStringList args = {QStringLiteral("-P"),       QString::number(env().serverPort()),
                              QStringLiteral("-s"),       serial,
                              QStringLiteral("logcat"),   QStringLiteral("-v"),
                              QStringLiteral("threadtime")};
    // Two readers at once, plus a short command on the same device while they stream.
    QProcess first, second;
    for (QProcess *reader : {&first, &second}) {
        reader->setProcessEnvironment(env().adbEnvironment());
        reader->start(env().adbPath(), args);
    }
    QByteArray a, b;
    ASSERT_TRUE(QTest::qWaitFor(
        [&] {
            a += first.readAllStandardOutput();
            b += second.readAllStandardOutput();
            return a.count('\n') > 50 && b.count('\n') > 50;
        },
        15000));
    EXPECT_EQ(env().runAdbOn(serial, {QStringLiteral("shell"), QStringLiteral("getprop"),
                                      QStringLiteral("ro.product.model")})
                  .out,
              QByteArray("Pixel Sim\n"));
    const qsizetype before = a.count('\n');
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            a += first.readAllStandardOutput();
            return a.count('\n') > before + 20;
        },
        10000));
    for (QProcess *reader : {&first, &second}) {
        reader->kill();
        reader->waitForFinished(2000);
    }
    // Both saw the same lines (the log is the device's, not the reader's).
    const QStringList la = lines(a), lb = lines(b);
    const QString probe = la.value(30);
    EXPECT_TRUE(threadtime().match(probe).hasMatch()) << probe.toStdString();
    EXPECT_TRUE(lb.contains(probe));
}

TEST_F(DevsimTest, ClearEmptiesTheBuffer)
{
    const QString serial = startDevice({QStringLiteral("--rate"), QStringLiteral("0"), QStringLiteral("--lines"),
                                        QStringLiteral("0"), QStringLiteral("--buffer"), QStringLiteral("25")});
    ASSERT_FALSE(serial.isEmpty());
    EXPECT_EQ(lines(env().runAdbOn(serial, {QStringLiteral("logcat"), QStringLiteral("-d")}).out).size(), 26);
    const auto clear = env().runAdbOn(serial, {QStringLiteral("shell"), QStringLiteral("exec logcat -c")});
    EXPECT_EQ(clear.exitCode, 0);
    EXPECT_TRUE(clear.out.isEmpty());
    EXPECT_EQ(lines(env().runAdbOn(serial, {QStringLiteral("logcat"), QStringLiteral("-d")}).out),
              QStringList{QStringLiteral("--------- beginning of main")});
}

TEST_F(DevsimTest, ProcessListOnCurrentAndOldDevice)
{
    const QString current = startDevice();
    const QString old = startDevice({QStringLiteral("--old-device")});
    ASSERT_FALSE(current.isEmpty());
    ASSERT_FALSE(old.isEmpty());

    const QString table = env().runAdbOn(current, {QStringLiteral("shell"), QStringLiteral("ps -A")}).text();
    EXPECT_TRUE(table.startsWith(QLatin1String("USER "))) << table.left(200).toStdString();
    EXPECT_GT(table.size(), 100);
    EXPECT_TRUE(table.contains(QLatin1String(" com.example.shop\n")));
    EXPECT_TRUE(pidsOf(table).contains(QStringLiteral("4711")));

    const QString refused = env().runAdbOn(old, {QStringLiteral("shell"), QStringLiteral("ps -A")}).text();
    EXPECT_LT(refused.size(), 100);
    EXPECT_TRUE(refused.contains(QLatin1String("bad pid"))) << refused.toStdString();
    const QString oldTable = env().runAdbOn(old, {QStringLiteral("shell"), QStringLiteral("ps")}).text();
    EXPECT_GT(oldTable.size(), 100);
    EXPECT_TRUE(pidsOf(oldTable).contains(QStringLiteral("4711")));
}

TEST_F(DevsimTest, ScreencapIsPngAndCrlfDeviceTranslatesLineFeeds)
{
    const QString plain = startDevice();
    const QString crlf = startDevice({QStringLiteral("--crlf")});
    ASSERT_FALSE(plain.isEmpty());
    ASSERT_FALSE(crlf.isEmpty());
    const QStringList command = {QStringLiteral("shell"), QStringLiteral("screencap"), QStringLiteral("-p")};

    const QByteArray png = env().runAdbOn(plain, command).out;
    const QImage image = QImage::fromData(png, "PNG");
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), QSize(270, 480));

    const QByteArray translated = env().runAdbOn(crlf, command).out;
    EXPECT_EQ(translated.count('\n'), png.count('\n'));
    EXPECT_EQ(translated.size(), png.size() + png.count('\n'));
    EXPECT_EQ(QByteArray(translated).replace("\r\n", "\n"), png);
    EXPECT_TRUE(QImage::fromData(translated, "PNG").isNull());
}

TEST_F(DevsimTest, InputCommandsAreRecordedAndUnknownCommandsAreNotFound)
{
    const QString serial = startDevice();
    ASSERT_FALSE(serial.isEmpty());
    const QStringList commands = {QStringLiteral("input text a%sb"), QStringLiteral("input keyevent 3 4 "),
                                  QStringLiteral("input tap 10 21"), QStringLiteral("input swipe 10 21 300 400 100")};
    for (const QString &command : commands) {
        const auto result = env().runAdbOn(serial, {QStringLiteral("shell"), command});
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_TRUE(result.out.isEmpty()) << result.out.toStdString();
    }
    QFile log(env().inputLogPath(serial));
    ASSERT_TRUE(log.open(QIODevice::ReadOnly));
    EXPECT_EQ(QString::fromUtf8(log.readAll()), commands.join(u'\n') + u'\n');

    const auto unknown = env().runAdbOn(serial, {QStringLiteral("shell"), QStringLiteral("frobnicate --now")});
    EXPECT_EQ(unknown.out, QByteArray("/system/bin/sh: frobnicate: not found\n"));
}

TEST_F(DevsimTest, TwoDevicesMakeAnUnqualifiedRequestAmbiguous)
{
    ASSERT_FALSE(startDevice().isEmpty());
    ASSERT_FALSE(startDevice().isEmpty());
    const auto result = env().runAdb({QStringLiteral("shell"), QStringLiteral("getprop ro.product.model")});
    EXPECT_NE(result.exitCode, 0);
    EXPECT_TRUE(result.err.contains("more than one device")) << result.err.toStdString();
}

TEST_F(DevsimTest, DroppedDeviceEndsItsStreamAndGoesOffline)
{
    const QString serial = startDevice({QStringLiteral("--drop-after"), QStringLiteral("2")});
    ASSERT_FALSE(serial.isEmpty());
    // logcat ends by itself when the device goes away.
    const auto stream = env().runAdbUntil(
        {QStringLiteral("-s"), serial, QStringLiteral("logcat"), QStringLiteral("-v"), QStringLiteral("threadtime")},
        [](const QByteArray &) { return false; }, 20000);
    EXPECT_NE(stream.exitCode, -1) << "logcat still running";
    EXPECT_GT(stream.out.count('\n'), 300);
    EXPECT_TRUE(env().waitForState(serial, QStringLiteral("offline"), 10000)) << env().deviceState(serial).toStdString();
    const auto refused = env().runAdbOn(serial, {QStringLiteral("shell"), QStringLiteral("getprop ro.product.model")});
    EXPECT_NE(refused.exitCode, 0);
}

TEST_F(DevsimTest, DeviceThatReturnsIsOnlineAgainQuickly)
{
    const QString serial = startDevice({QStringLiteral("--drop-after"), QStringLiteral("1"),
                                        QStringLiteral("--return-after"), QStringLiteral("1")});
    ASSERT_FALSE(serial.isEmpty());
    ASSERT_TRUE(QTest::qWaitFor([&] { return env().deviceState(serial) != QStringLiteral("device"); }, 10000));
    EXPECT_TRUE(env().waitForState(serial, QStringLiteral("device"), 10000)) << env().deviceLog(serial).toStdString();
    EXPECT_EQ(env().runAdbOn(serial, {QStringLiteral("shell"), QStringLiteral("getprop ro.product.model")}).out,
              QByteArray("Pixel Sim\n"));
}

TEST_F(DevsimTest, RestartedDeviceKeepsItsSerial)
{
    const QString serial = startDevice({QStringLiteral("--model"), QStringLiteral("Phoenix")});
    ASSERT_FALSE(serial.isEmpty());
    ASSERT_TRUE(env().stopDevice(serial));
    EXPECT_TRUE(env().waitForState(serial, QStringLiteral("offline"), 10000));
    ASSERT_TRUE(env().restartDevice(serial)) << env().errorString().toStdString();
    EXPECT_EQ(env().runAdbOn(serial, {QStringLiteral("shell"), QStringLiteral("getprop ro.product.model")}).out,
              QByteArray("Phoenix\n"));
    ASSERT_TRUE(env().removeDevice(serial));
    EXPECT_TRUE(env().deviceState(serial).isEmpty());
}
