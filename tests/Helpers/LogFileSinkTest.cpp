// SPDX-License-Identifier: MIT
#include "Helpers/LogFileSink.h"
#include "support/ManualTime.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <spdlog/pattern_formatter.h>

namespace {

// One line handed to the sink after the clock moved on, and the file and roll count it must leave.
struct Write
{
    qint64 afterMs;
    QByteArray line;
    QByteArray fileAfter;
    int rollsAfter;
};

class LogFileSinkTest : public ::testing::Test
{
protected:
    // Each line is checked without a flush: the sink writes every line through at once.
    void play(qint64 maxBytes, qint64 rollMs, std::initializer_list<Write> writes)
    {
        LogFileSink sink(path(), maxBytes, rollMs, m_clock);
        sink.set_formatter(std::make_unique<spdlog::pattern_formatter>("%v"));
        for (const Write &w : writes) {
            m_clock.advanceMs(w.afterMs);
            sink.log(
                spdlog::details::log_msg(spdlog::source_loc{}, "test", spdlog::level::debug, w.line.toStdString()));
            QFile file(path());
            ASSERT_TRUE(file.open(QIODevice::ReadOnly));
            EXPECT_EQ(file.readAll(), w.fileAfter) << "after " << w.line.left(20).constData();
            EXPECT_EQ(sink.rollCount(), w.rollsAfter) << "after " << w.line.left(20).constData();
        }
    }

    QString path() const { return m_dir.path() + QStringLiteral("/sub/dir/test.log"); }

    QTemporaryDir m_dir;
    ManualClock m_clock{1'000'000};
};

} // namespace

TEST_F(LogFileSinkTest, RollsWhenTheNextLineWouldPassTheSizeAndKeepsNoArchive)
{
    const QByteArray full = QByteArray(40, 'a') + '\n' + QByteArray(40, 'a') + '\n' + QByteArray(17, 'b') + '\n';
    play(100, 60'000,
         {
             {0, QByteArray(40, 'a'), QByteArray(40, 'a') + '\n', 0}, // creates the folders
             {0, QByteArray(40, 'a'), full.left(82), 0},
             {0, QByteArray(17, 'b'), full, 0}, // exactly 100 bytes still fit
             {0, "c", "c\n", 1},
         });
}

TEST_F(LogFileSinkTest, OversizedLineGoesWholeIntoAFreshFile)
{
    play(10, 60'000, {{0, QByteArray(25, 'x'), QByteArray(25, 'x') + '\n', 0}, {0, "y", "y\n", 1}});
}

TEST_F(LogFileSinkTest, RollsWhenTheFileReachesTheIntervalCountedFromItsCreation)
{
    play(1'000'000, 1000,
         {
             {0, "one", "one\n", 0},
             {999, "two", "one\ntwo\n", 0},
             {1, "three", "three\n", 1},
             {999, "four", "three\nfour\n", 1},
         });
}

TEST_F(LogFileSinkTest, ContinuesAnExistingFileAndCountsItsSize)
{
    play(30, 60'000, {{0, QByteArray(19, 'o'), QByteArray(19, 'o') + '\n', 0}});
    play(30, 60'000, {{0, "new", QByteArray(19, 'o') + "\nnew\n", 0}, {0, "more!!", "more!!\n", 1}});
}
