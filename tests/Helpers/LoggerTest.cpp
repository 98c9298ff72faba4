// SPDX-License-Identifier: MIT
#include "Helpers/Logger.h"
#include "support/LogCapture.h"
#include "support/TestFiles.h"

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

class LoggerTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("QUILLFERN_LOG_QUIET", "1");
        logger().shutdown();
        logger().registerLogger(m_dir.path());
    }
    void TearDown() override { logger().shutdown(); }

    static Logger &logger() { return Logger::getInstance(); }

    // The file as it is now; `flush` first empties the queue.
    static QStringList lines(bool flush = true)
    {
        if (flush)
            logger().flush();
        QFile file(logger().logFilePath());
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
    }
    // How many lines are "MM-dd HH:mm:ss", the level letter, then `rest` (a pattern).
    static qsizetype matching(const QString &rest)
    {
        return lines().filter(QRegularExpression(QStringLiteral(R"(^\d\d-\d\d \d\d:\d\d:\d\d V )") + rest)).size();
    }

    QTemporaryDir m_dir;
};

} // namespace

TEST_F(LoggerTest, RegistersOnceAndStampsEachLineWithTimeAndThread)
{
    const QString path = m_dir.path() + QStringLiteral("/Quillfern.log");
    EXPECT_EQ(matching(R"(\[UI\] Logger:registerLogger: logging to file: )" + QRegularExpression::escape(path) + '$'),
              1);
    logger().registerLogger(m_dir.path() + QStringLiteral("/other"));
    EXPECT_EQ(logger().logFilePath(), path);

    // From the GUI thread "UI", from a worker its id; the time is the local time of the call.
    const QString before = Logger::stringFromDate(QDateTime::currentDateTime());
    QF_LOG(QStringLiteral("hello from ui"));
    QString workerId;
    std::thread worker([&] {
        workerId = Logger::currentThreadId();
        QF_LOG(QStringLiteral("hello from worker"));
    });
    worker.join();
    EXPECT_EQ(matching(QStringLiteral(R"(\[UI\] LoggerTest:TestBody: hello from ui$)")), 1);
    EXPECT_EQ(matching(QStringLiteral(R"(\[%1\] LoggerTest:operator\(\): hello from worker$)").arg(workerId)), 1);
    const QString stamp = lines().filter(QStringLiteral("hello from ui")).value(0).left(14);
    EXPECT_LE(before, stamp);
    EXPECT_LE(stamp, Logger::stringFromDate(QDateTime::currentDateTime()));
}

TEST_F(LoggerTest, AnErrorReturnsOnlyOnceItsThreadsEarlierLinesAreWritten)
{
    constexpr int Threads = 4;
    constexpr int Lines = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < Threads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < Lines - 1; ++i)
                QF_LOG(QStringLiteral("t%1 line %2").arg(t).arg(i));
            QF_LOG_ERROR(QStringLiteral("t%1 line %2").arg(t).arg(Lines - 1));
        });
    }
    for (auto &thread : threads)
        thread.join();

    // Each thread ended with an error, so all it logged is in the file without a flush, in order.
    const QStringList now = lines(false);
    for (int t = 0; t < Threads; ++t) {
        int next = 0;
        for (const QString &line : now)
            next += line.endsWith(QStringLiteral(": t%1 line %2").arg(t).arg(next)) ? 1 : 0;
        EXPECT_EQ(next, Lines) << "thread " << t;
    }
}

TEST_F(LoggerTest, FileRollsAtHalfAMebibyteAndStartsWithAWholeLine)
{
    const QString payload(1000, u'x');
    for (int i = 0; i < 600; ++i)
        QF_LOG(QStringLiteral("%1 %2").arg(i).arg(payload));
    // 600 lines of ~1 KiB: one roll, and the fresh file holds the tail from a whole line on.
    const QStringList all = lines();
    EXPECT_LE(QFileInfo(logger().logFilePath()).size(), Logger::MaxFileSize);
    EXPECT_GT(all.size(), 50);
    EXPECT_TRUE(all.last().endsWith(QStringLiteral(": 599 ") + payload));
    EXPECT_EQ(matching(QString()), all.size()) << "whole lines only";
}

TEST_F(LoggerTest, ObserverSeesEveryMessageRegisteredOrNotAndLogToStringRegistersAgain)
{
    std::optional<LogCapture> capture(std::in_place);
    QF_LOG(QStringLiteral("one"));
    logger().shutdown();                   // forgets the file: logToString below must register again
    QF_LOG(QStringLiteral("two"));         // unregistered: dropped, but observed
    QF_LOG_ERROR(QStringLiteral("three")); // unregistered and quiet: no console either
    const QList<QPair<LogLevel, QString>> expected{
        {LogLevel::Debug, "one"}, {LogLevel::Debug, "two"}, {LogLevel::Error, "three"}};
    EXPECT_EQ(capture->seen(), expected);
    capture.reset();
    QF_LOG(QStringLiteral("four")); // no observer left to call

    const QString text = logger().logToString();
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation);
    EXPECT_TRUE(logger().logFilePath().startsWith(folder + QStringLiteral("/logs/")))
        << logger().logFilePath().toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("logging to file: ") + logger().logFilePath()));
}

TEST(LoggerFormat, LineLayoutLevelFromTheMaskAndUiForTheMainThread)
{
    // The flag does not decide the letter.
    LogMessage message{.flag = 1,
                       .timestamp = QDateTime(QDate(2023, 11, 14), QTime(17, 22, 5, 999)),
                       .message = "...",
                       .fileName = "RemoteScreenMonitorSheet",
                       .function = "-[RemoteScreenMonitorSheet keyDown:]",
                       .threadID = "1234"};
    // The mask, the main thread's id (none before registration), and the line's letter and thread.
    const std::tuple<int, QString, const char *> rows[] = {
        {1, "99", "E [1234]"},  {3, "99", "W [1234]"}, {7, "99", "I [1234]"},  {15, "99", "D [1234]"},
        {31, "99", "V [1234]"}, {8, "99", "V [1234]"}, {31, "1234", "V [UI]"}, {31, "", "V [1234]"}};
    for (const auto &[mask, mainThread, letterAndThread] : rows) {
        message.levelMask = mask;
        EXPECT_EQ(Logger::formatLogMessage(message, mainThread),
                  QStringLiteral("11-14 17:22:05 %1 RemoteScreenMonitorSheet:keyDown: ...").arg(letterAndThread));
    }
}

TEST(LoggerFormat, MethodDateAndFileNames)
{
    // "a ": nothing follows the space, so the text is kept, then cut at the space.
    const std::pair<QString, QString> methods[] = {
        {"-[Sheet keyDown]", "keyDown"}, {"+[Utils start:]", "start"}, {"a ", "a"}, {"a b c", "b"}, {"", ""}};
    for (const auto &[function, method] : methods)
        EXPECT_EQ(Logger::extractMethodName(function), method) << function.toStdString();

    // Shown in local time whatever zone the value carries.
    const QDateTime utc(QDate(2024, 6, 1), QTime(12, 0), Qt::UTC);
    EXPECT_EQ(Logger::stringFromDate(utc), utc.toLocalTime().toString(QStringLiteral("MM-dd HH:mm:ss")));

    const std::pair<const char *, QString> files[] = {
        {"/work/src/Helpers/Logger.cpp", "Logger"}, {"plain", "plain"}, {"a.b.cpp", "a.b"}, {nullptr, ""}};
    for (const auto &[path, name] : files)
        EXPECT_EQ(Logger::fileNameOf(path), name) << (path ? path : "null");
}

TEST(LoggerReadLogText, LastFifteenThousandCharactersAndReadFailures)
{
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/log.txt");
    const auto read = [&](const QString &text) { return Logger::readLogText(writeTestFile(path, text.toUtf8())); };
    // Characters, not bytes: é takes two bytes.
    const QString exact = QString(14999, u'\u00e9') + u'\n';
    EXPECT_EQ(read(exact), exact);
    const QString over = QStringLiteral("A") + QString(14999, u'\u00e9') + u'Z';
    EXPECT_EQ(read(over), QStringLiteral("<truncated>\n") + over.right(15000));
    EXPECT_EQ(read(QString()), QString());

    EXPECT_EQ(Logger::readLogText(dir.path() + QStringLiteral("/none.log")), QStringLiteral("no log found!"));
    EXPECT_EQ(Logger::readLogText(QString()), QStringLiteral("no log found!"));

    LogCapture capture;
    const QString invalid = QStringLiteral("ERROR reading file: ") + path;
    EXPECT_EQ(Logger::readLogText(writeTestFile(path, "ok\n\xff\xfe broken\n")), invalid);
    const QString folder = dir.path() + QStringLiteral("/a-folder.log");
    ASSERT_TRUE(QDir().mkpath(folder));
    EXPECT_EQ(Logger::readLogText(folder), QStringLiteral("ERROR reading file: ") + folder);
    EXPECT_EQ(capture.lines(LogLevel::Error), (QStringList{invalid, QStringLiteral("ERROR reading file: ") + folder}));
}
