// SPDX-License-Identifier: MIT
#include "Helpers/Logger.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

const QString TimePattern = QStringLiteral(R"(\d\d-\d\d \d\d:\d\d:\d\d)");

class LoggerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("QUILLFERN_LOG_QUIET", "1");
        ASSERT_TRUE(m_dir.isValid());
        logger().shutdown();
        logger().registerLogger(m_dir.path());
        ASSERT_TRUE(logger().isRegistered());
    }

    void TearDown() override
    {
        logger().setObserver({});
        logger().shutdown();
    }

    static Logger &logger() { return Logger::getInstance(); }

    // The file as it is now, without flushing the queue.
    QStringList linesNow() const
    {
        QFile file(logger().logFilePath());
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }

    QStringList lines() const
    {
        logger().flush();
        return linesNow();
    }

    QTemporaryDir m_dir;
};

QString findLine(const QStringList &lines, const QString &suffix)
{
    for (const QString &line : lines) {
        if (line.endsWith(suffix))
            return line;
    }
    return {};
}

} // namespace

TEST_F(LoggerTest, RegistersTheFileInTheGivenFolderAndSaysSo)
{
    EXPECT_EQ(logger().logFilePath(), m_dir.path() + QStringLiteral("/Quillfern.log"));
    const QString line = findLine(lines(), QStringLiteral("logging to file: ") + logger().logFilePath());
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^%1 V \\[UI\\] Logger:registerLogger: ").arg(TimePattern))
                    .match(line)
                    .hasMatch())
        << line.toStdString();
    // A second registration changes nothing.
    logger().registerLogger(m_dir.path() + QStringLiteral("/other"));
    EXPECT_EQ(logger().logFilePath(), m_dir.path() + QStringLiteral("/Quillfern.log"));
}

TEST_F(LoggerTest, LinesFromTheGuiThreadSayUiAndFromAWorkerItsId)
{
    QF_LOG(QStringLiteral("hello from ui"));
    QString workerId;
    std::thread worker([&] {
        workerId = Logger::currentThreadId();
        QF_LOG(QStringLiteral("hello from worker"));
    });
    worker.join();
    ASSERT_FALSE(workerId.isEmpty());
    EXPECT_NE(workerId, logger().mainThreadId());
    EXPECT_EQ(logger().mainThreadId(), Logger::currentThreadId());

    const QStringList all = lines();
    const QString ui = findLine(all, QStringLiteral("hello from ui"));
    const QString fromWorker = findLine(all, QStringLiteral("hello from worker"));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^%1 V \\[UI\\] LoggerTest:TestBody: hello from ui$").arg(TimePattern))
                    .match(ui)
                    .hasMatch())
        << ui.toStdString();
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^%1 V \\[%2\\] LoggerTest:operator\\(\\): hello from worker$")
                                       .arg(TimePattern, workerId))
                    .match(fromWorker)
                    .hasMatch())
        << fromWorker.toStdString();

    // The time is the local time of the call.
    const QDateTime now = QDateTime::currentDateTime();
    QDateTime stamped = QDateTime::fromString(ui.left(14), QStringLiteral("MM-dd HH:mm:ss"));
    stamped.setDate(QDate(now.date().year(), stamped.date().month(), stamped.date().day()));
    EXPECT_LT(qAbs(stamped.secsTo(now)), 120) << ui.toStdString();
}

TEST_F(LoggerTest, ErrorIsWrittenAfterEarlierLinesBeforeItReturns)
{
    for (int i = 0; i < 2000; ++i)
        QF_LOG(QStringLiteral("line %1").arg(i));
    QF_LOG_ERROR(QStringLiteral("boom"));

    const QStringList now = linesNow(); // no flush: the error call itself waited
    ASSERT_FALSE(now.isEmpty());
    EXPECT_TRUE(now.last().endsWith(QStringLiteral("V [UI] LoggerTest:TestBody: boom"))) << now.last().toStdString();
    int expected = 0;
    for (const QString &line : now) {
        if (line.endsWith(QStringLiteral(": line %1").arg(expected)))
            ++expected;
    }
    EXPECT_EQ(expected, 2000);
}

TEST_F(LoggerTest, ConcurrentErrorsEachWaitForTheirOwnThreadsLines)
{
    constexpr int Threads = 4;
    constexpr int Lines = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < Lines; ++i) {
                if (i % 50 == 49)
                    QF_LOG_ERROR(QStringLiteral("t%1 error %2").arg(t).arg(i));
                else
                    QF_LOG(QStringLiteral("t%1 line %2").arg(t).arg(i));
            }
        });
    }
    for (auto &thread : threads)
        thread.join();

    // Each thread ended with an error, so everything it logged is already in the file.
    const QStringList now = linesNow();
    for (int t = 0; t < Threads; ++t) {
        int next = 0;
        for (const QString &line : now) {
            const QString kind = next % 50 == 49 ? QStringLiteral("error") : QStringLiteral("line");
            if (line.endsWith(QStringLiteral(": t%1 %2 %3").arg(t).arg(kind).arg(next)))
                ++next;
        }
        EXPECT_EQ(next, Lines) << "thread " << t;
    }
}

TEST_F(LoggerTest, FileRollsAtHalfAMebibyte)
{
    const QString payload(1000, u'x');
    for (int i = 0; i < 600; ++i)
        QF_LOG(QStringLiteral("%1 %2").arg(i, 3, 10, QLatin1Char('0')).arg(payload));
    const QStringList all = lines();
    EXPECT_LE(QFileInfo(logger().logFilePath()).size(), Logger::MaxFileSize);
    ASSERT_FALSE(all.isEmpty());
    // 600 lines of ~1 KiB: one roll, and the fresh file holds the consecutive tail.
    const qsizetype kept = all.size();
    EXPECT_GT(kept, 50);
    EXPECT_LT(kept, 200);
    for (qsizetype i = 0; i < kept; ++i)
        EXPECT_TRUE(all[i].contains(QStringLiteral(": %1 x").arg(600 - kept + i, 3, 10, QLatin1Char('0')))) << i;
    EXPECT_TRUE(all.last().contains(QStringLiteral(": 599 x"))) << all.last().left(80).toStdString();
    EXPECT_TRUE(findLine(all, QStringLiteral("logging to file: ") + logger().logFilePath()).isEmpty());
    EXPECT_FALSE(all.first().contains(QStringLiteral(": 000 x")));
    // The file starts with a whole line.
    EXPECT_TRUE(QRegularExpression(QStringLiteral("^%1 V ").arg(TimePattern)).match(all.first()).hasMatch());
}

TEST_F(LoggerTest, LogToStringShowsTheCurrentFile)
{
    QF_LOG(QStringLiteral("visible in the viewer"));
    const QString text = logger().logToString(); // flushes the queue first
    EXPECT_TRUE(text.contains(QStringLiteral("LoggerTest:TestBody: visible in the viewer\n")));

    ASSERT_TRUE(QFile::remove(logger().logFilePath()));
    EXPECT_EQ(logger().logToString(), QStringLiteral("no log found!"));
}

TEST_F(LoggerTest, LogToStringRegistersInTheDataFolderWhenNeeded)
{
    logger().shutdown();
    EXPECT_FALSE(logger().isRegistered());
    EXPECT_TRUE(logger().logFilePath().isEmpty());
    const QString text = logger().logToString();
    EXPECT_TRUE(logger().isRegistered());
    const QString expectedFolder = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
    EXPECT_TRUE(logger().logFilePath().startsWith(expectedFolder + QStringLiteral("/logs/")))
        << logger().logFilePath().toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("logging to file: ") + logger().logFilePath()));
}

TEST_F(LoggerTest, ObserverSeesEveryMessageRegisteredOrNot)
{
    QList<QPair<LogLevel, QString>> seen;
    logger().setObserver([&](LogLevel level, const QString &message) { seen.append({level, message}); });
    QF_LOG(QStringLiteral("one"));
    logger().shutdown();
    QF_LOG(QStringLiteral("two"));       // unregistered: dropped, but observed
    QF_LOG_ERROR(QStringLiteral("three")); // unregistered and quiet: no console either
    ASSERT_EQ(seen.size(), 3);
    EXPECT_EQ(seen[0], qMakePair(LogLevel::Debug, QStringLiteral("one")));
    EXPECT_EQ(seen[1], qMakePair(LogLevel::Debug, QStringLiteral("two")));
    EXPECT_EQ(seen[2], qMakePair(LogLevel::Error, QStringLiteral("three")));
    logger().setObserver({});
    QF_LOG(QStringLiteral("four"));
    EXPECT_EQ(seen.size(), 3);
}

TEST(LoggerFormat, LevelLetterComesFromTheMaskNotTheFlag)
{
    LogMessage message;
    message.timestamp = QDateTime(QDate(2023, 11, 14), QTime(17, 22, 5, 999));
    message.message = QStringLiteral("...");
    message.fileName = QStringLiteral("RemoteScreenMonitorSheet");
    message.function = QStringLiteral("-[RemoteScreenMonitorSheet keyDown:]");
    message.threadID = QStringLiteral("1234");
    message.flag = 1;

    const std::pair<int, const char *> letters[] = {{1, "E"}, {3, "W"}, {7, "I"}, {15, "D"}, {31, "V"}, {0, "V"}, {8, "V"}};
    for (const auto &[mask, letter] : letters) {
        message.levelMask = mask;
        EXPECT_EQ(Logger::formatLogMessage(message, QStringLiteral("99")),
                  QStringLiteral("11-14 17:22:05 %1 [1234] RemoteScreenMonitorSheet:keyDown: ...").arg(QLatin1String(letter)));
    }
    message.levelMask = 31;
    EXPECT_EQ(Logger::formatLogMessage(message, QStringLiteral("1234")),
              QStringLiteral("11-14 17:22:05 V [UI] RemoteScreenMonitorSheet:keyDown: ..."));
    // Before registration no thread is the UI thread.
    EXPECT_EQ(Logger::formatLogMessage(message, QString()),
              QStringLiteral("11-14 17:22:05 V [1234] RemoteScreenMonitorSheet:keyDown: ..."));
}

TEST(LoggerFormat, ExtractMethodName)
{
    EXPECT_EQ(Logger::extractMethodName(QStringLiteral("-[RemoteScreenMonitorSheet keyDown:]")), QStringLiteral("keyDown"));
    EXPECT_EQ(Logger::extractMethodName(QStringLiteral("-[Logger registerLogger]")), QStringLiteral("registerLogger"));
    EXPECT_EQ(Logger::extractMethodName(QStringLiteral("+[Utils startAdb:]")), QStringLiteral("startAdb"));
    EXPECT_EQ(Logger::extractMethodName(QStringLiteral("main")), QStringLiteral("main"));
    EXPECT_EQ(Logger::extractMethodName(QStringLiteral("operator()")), QStringLiteral("operator()"));
    // Nothing follows the space: the text is kept, then cut at the space.
    EXPECT_EQ(Logger::extractMethodName(QStringLiteral("a ")), QStringLiteral("a"));
    EXPECT_EQ(Logger::extractMethodName(QStringLiteral("x:y")), QStringLiteral("x"));
    EXPECT_EQ(Logger::extractMethodName(QStringLiteral("a b c")), QStringLiteral("b"));
    EXPECT_EQ(Logger::extractMethodName(QStringLiteral(" lead")), QStringLiteral("lead"));
    EXPECT_EQ(Logger::extractMethodName(QString()), QString());
}

TEST(LoggerFormat, DateAndFileName)
{
    EXPECT_EQ(Logger::stringFromDate(QDateTime(QDate(2024, 1, 2), QTime(3, 4, 5, 678))), QStringLiteral("01-02 03:04:05"));
    EXPECT_EQ(Logger::stringFromDate(QDateTime(QDate(2024, 12, 31), QTime(23, 59, 59))), QStringLiteral("12-31 23:59:59"));
    // Shown in local time whatever zone the value carries.
    const QDateTime utc(QDate(2024, 6, 1), QTime(12, 0), Qt::UTC);
    EXPECT_EQ(Logger::stringFromDate(utc), utc.toLocalTime().toString(QStringLiteral("MM-dd HH:mm:ss")));

    EXPECT_EQ(Logger::fileNameOf("/work/src/Helpers/Logger.cpp"), QStringLiteral("Logger"));
    EXPECT_EQ(Logger::fileNameOf("Scenes/RemoteScreenMonitorSheet.mm"), QStringLiteral("RemoteScreenMonitorSheet"));
    EXPECT_EQ(Logger::fileNameOf("plain"), QStringLiteral("plain"));
    EXPECT_EQ(Logger::fileNameOf("a.b.cpp"), QStringLiteral("a.b"));
    EXPECT_EQ(Logger::fileNameOf(nullptr), QString());
}

namespace {
QString writeFile(const QTemporaryDir &dir, const QByteArray &bytes)
{
    const QString path = dir.path() + QStringLiteral("/log.txt");
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
    return path;
}
} // namespace

TEST(LoggerReadLogText, TruncatesPastFifteenThousandCharacters)
{
    QTemporaryDir dir;
    // Characters, not bytes: é takes two bytes.
    QString exact = QString(14999, u'\u00e9') + u'\n';
    EXPECT_EQ(Logger::readLogText(writeFile(dir, exact.toUtf8())), exact);

    QString over = QStringLiteral("A") + QString(14999, u'\u00e9') + u'Z';
    EXPECT_EQ(Logger::readLogText(writeFile(dir, over.toUtf8())),
              QStringLiteral("<truncated>\n") + over.right(15000));
    EXPECT_FALSE(Logger::readLogText(writeFile(dir, over.toUtf8())).contains(u'A'));

    EXPECT_EQ(Logger::readLogText(writeFile(dir, QByteArray())), QString());
}

TEST(LoggerReadLogText, MissingAndUnreadableFiles)
{
    QTemporaryDir dir;
    EXPECT_EQ(Logger::readLogText(dir.path() + QStringLiteral("/none.log")), QStringLiteral("no log found!"));
    EXPECT_EQ(Logger::readLogText(QString()), QStringLiteral("no log found!"));

    QList<QPair<LogLevel, QString>> seen;
    Logger::getInstance().setObserver([&](LogLevel level, const QString &message) { seen.append({level, message}); });
    const QString invalid = writeFile(dir, QByteArray("ok\n\xff\xfe broken\n"));
    const QString expected = QStringLiteral("ERROR reading file: ") + invalid;
    EXPECT_EQ(Logger::readLogText(invalid), expected);

    const QString folder = dir.path() + QStringLiteral("/a-folder.log");
    ASSERT_TRUE(QDir().mkpath(folder));
    EXPECT_EQ(Logger::readLogText(folder), QStringLiteral("ERROR reading file: ") + folder);
    Logger::getInstance().setObserver({});

    ASSERT_EQ(seen.size(), 2);
    EXPECT_EQ(seen[0], qMakePair(LogLevel::Error, expected));
}
