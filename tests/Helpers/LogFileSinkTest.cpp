// SPDX-License-Identifier: MIT
#include "Helpers/LogFileSink.h"
#include "support/ManualTime.h"
#include "support/QtPrinters.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <spdlog/pattern_formatter.h>

namespace {

class LogFileSinkTest : public ::testing::Test
{
protected:
    // Each write: the clock moves on (ms), one line goes to the sink, and the file and roll count it must leave.
    // Each is checked without a flush: the sink writes every line through at once.
    void play(qint64 maxBytes, qint64 rollMs,
              std::initializer_list<std::tuple<qint64, QByteArray, QByteArray, int>> writes)
    {
        LogFileSink sink(path(), maxBytes, rollMs, m_clock);
        sink.set_formatter(std::make_unique<spdlog::pattern_formatter>("%v"));
        for (const auto &[afterMs, line, fileAfter, rollsAfter] : writes) {
            m_clock.advanceMs(afterMs);
            sink.log(spdlog::details::log_msg(spdlog::source_loc{}, "test", spdlog::level::debug, line.toStdString()));
            QFile file(path());
            ASSERT_TRUE(file.open(QIODevice::ReadOnly));
            EXPECT_EQ(std::pair(file.readAll(), sink.rollCount()), std::pair(fileAfter, rollsAfter))
                << "after " << line.left(20).constData();
        }
    }

    QString path() const { return m_dir.path() + QStringLiteral("/sub/dir/test.log"); }

    QTemporaryDir m_dir;
    ManualClock m_clock{1'000'000};
};

} // namespace

TEST_F(LogFileSinkTest, RollsBySizeAndByAgeKeepingNoArchive)
{
    {
        SCOPED_TRACE("an oversized line goes whole into a fresh file, creating the folders");
        play(10, 60'000, {{0, QByteArray(25, 'x'), QByteArray(25, 'x') + '\n', 0}, {0, "y", "y\n", 1}});
    }
    {
        SCOPED_TRACE("the file is continued with its size counted; a line that would pass the size rolls first");
        const QByteArray full = "y\n" + QByteArray(40, 'a') + '\n' + QByteArray(56, 'b') + '\n';
        play(100, 60'000,
             {{0, QByteArray(40, 'a'), full.left(43), 0},
              {0, QByteArray(56, 'b'), full, 0}, // exactly the size still fits
              {0, "c", "c\n", 1}});
    }
    SCOPED_TRACE("the interval is counted from the file's creation");
    ASSERT_TRUE(QFile::remove(path()));
    play(1'000'000, 1000,
         {{0, "one", "one\n", 0},
          {999, "two", "one\ntwo\n", 0},
          {1, "three", "three\n", 1},
          {999, "four", "three\nfour\n", 1}});
}
