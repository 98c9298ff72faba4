// SPDX-License-Identifier: MIT
#include "Presentation/ProcessTree.h"
#include "Log/LogDocument.h"
#include "support/TestEntries.h"

#include <gtest/gtest.h>

#include <QProcess>

namespace {

const QString Header = QStringLiteral("// Format:\n//\t PID \u2500\u252C (log message count) AppName\n"
                                      "//\t      \u2514\u2500 TID (log message count)\n\n");

LogEntry line(const QString &pid, const QString &tid, const QString &app = QString())
{
    return testEntry({.app = app, .pid = pid, .tid = tid});
}

} // namespace

TEST(ProcessTreeTest, EdgeCasesToTheCharacter)
{
    const struct
    {
        const char *what;
        QList<LogEntry> lines;
        QString body;
    } cases[] = {
        {"no lines", {}, QString()},
        {"no thread id, or only \"-\": the process line alone",
         {line("7", ""), line("7", "-", "app.seven")},
         "\n7       \u2500\u252C (2) app.seven (process)\n"},
        {"one thread: one line with the last connector",
         {line("42", "43", "a")},
         "\n42      \u2500\u252C (1) a (process)\n         \u2514\u2500 43 (1)\n"},
        {"numeric order of processes and threads; the last line names the process",
         {line("100", "100", "x"), line("12", "9", "old"), line("12", "10"), line("12", "10", "new")},
         "\n12      \u2500\u252C (3) new (process)\n         \u251C\u2500 9 (1)\n         \u2514\u2500 10 (2)\n"
         "\n100     \u2500\u252C (1) x (process)\n         \u2514\u2500 100 (1)\n"},
        {"the program's own lines and lines without a pid are not counted; a long pid is cut to 7",
         {line("---", "---", "Quillfern"), line("", "5"), line("123456789", "-")},
         "\n1234567 \u2500\u252C (1)  (process)\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(ProcessTree::text(c.lines), Header + c.body);
    }
}

TEST(ProcessTreeTest, NumericCompareOrdersDigitRunsByValue)
{
    const struct
    {
        const char *a, *b;
        int order;
    } cases[] = {{"12", "100", -1}, {"100", "12", 1}, {"9", "9", 0},       {"a2", "a10", -1},
                 {"12", "quantity", -1}, {"tids", "quantity", 1}, {"007", "7", -1}, {"", "1", -1}};
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
        EXPECT_EQ(ProcessTree::numericCompare(QString::fromLatin1(c.a), QString::fromLatin1(c.b)), c.order);
    }
}

TEST(ProcessTreeTest, LogdumpPrintsTheTreeOfALogFile)
{
    const QString path = QStringLiteral(QF_TEST_DATA_DIR "/threadtime_simple_clock.log");
    LogIndexCounter counter;
    const QList<LogEntry> entries = LogDocument::readTextFile(path, counter).entries;
    ASSERT_FALSE(entries.isEmpty());
    QProcess dump;
    dump.start(QStringLiteral(QF_TOOLS_DIR "/quillfern-logdump"), {QStringLiteral("--process-tree"), path});
    ASSERT_TRUE(dump.waitForFinished(30000));
    EXPECT_EQ(dump.exitCode(), 0);
    const QString printed = QString::fromUtf8(dump.readAllStandardOutput());
    EXPECT_EQ(printed, ProcessTree::text(entries));
    EXPECT_TRUE(printed.contains(QStringLiteral(" (process)\n"))); // lines with processes, not the header alone
}
