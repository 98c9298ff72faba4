// SPDX-License-Identifier: MIT
// quillfern-logdump as a script uses it: the process tree of a log file on standard output.
// (A separate program, so it runs here and not under the thread sanitizer, which cannot follow the
// way QProcess starts a child in a threaded process.)
#include "Log/LogDocument.h"
#include "Presentation/ProcessTree.h"

#include <QProcess>

#include <gtest/gtest.h>

TEST(LogdumpTest, PrintsTheProcessTreeOfALogFile)
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
