// SPDX-License-Identifier: MIT
#include "Helpers/LogFileSink.h"
#include "support/ManualTime.h"

#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>
#include <spdlog/pattern_formatter.h>

namespace {

class LogFileSinkTest : public ::testing::Test
{
protected:
    std::unique_ptr<LogFileSink> makeSink(qint64 maxBytes, qint64 rollMs)
    {
        auto sink = std::make_unique<LogFileSink>(path(), maxBytes, rollMs, m_clock);
        sink->set_formatter(std::make_unique<spdlog::pattern_formatter>("%v"));
        return sink;
    }

    static void write(LogFileSink &sink, const std::string &text)
    {
        sink.log(spdlog::details::log_msg(spdlog::source_loc{}, "test", spdlog::level::debug, text));
    }

    QString path() const { return m_dir.path() + QStringLiteral("/sub/dir/test.log"); }

    QByteArray contents() const
    {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<missing>");
    }

    QTemporaryDir m_dir;
    ManualClock m_clock{1'000'000};
};

} // namespace

TEST_F(LogFileSinkTest, CreatesFoldersAndWritesEachLineAtOnce)
{
    auto sink = makeSink(1000, 60'000);
    write(*sink, "first");
    // Flushed per line: readable without an explicit flush.
    EXPECT_EQ(contents(), QByteArray("first\n"));
    write(*sink, "second");
    EXPECT_EQ(contents(), QByteArray("first\nsecond\n"));
    EXPECT_EQ(sink->rollCount(), 0);
}

TEST_F(LogFileSinkTest, RollsWhenTheNextLineWouldExceedTheSize)
{
    auto sink = makeSink(100, 60'000);
    const std::string forty(40, 'a');
    write(*sink, forty);
    write(*sink, forty); // 82 bytes
    EXPECT_EQ(sink->rollCount(), 0);
    write(*sink, "b" + std::string(16, 'b')); // 82 + 18 = 100: still fits exactly
    EXPECT_EQ(sink->rollCount(), 0);
    EXPECT_EQ(contents().size(), 100);
    write(*sink, "c");
    EXPECT_EQ(sink->rollCount(), 1);
    EXPECT_EQ(contents(), QByteArray("c\n")); // one file: the old content is gone
}

TEST_F(LogFileSinkTest, OversizedLineGoesWholeIntoAFreshFile)
{
    auto sink = makeSink(10, 60'000);
    write(*sink, std::string(25, 'x')); // empty file: no roll, written whole
    EXPECT_EQ(sink->rollCount(), 0);
    EXPECT_EQ(contents(), QByteArray(25, 'x') + '\n');
    write(*sink, "y");
    EXPECT_EQ(sink->rollCount(), 1);
    EXPECT_EQ(contents(), QByteArray("y\n"));
}

TEST_F(LogFileSinkTest, RollsWhenTheFileReachesTheInterval)
{
    auto sink = makeSink(1'000'000, 1000);
    write(*sink, "one");
    m_clock.advanceMs(999);
    write(*sink, "two");
    EXPECT_EQ(sink->rollCount(), 0);
    m_clock.advanceMs(1);
    write(*sink, "three");
    EXPECT_EQ(sink->rollCount(), 1);
    EXPECT_EQ(contents(), QByteArray("three\n"));
    // The new file's age starts at its creation.
    m_clock.advanceMs(999);
    write(*sink, "four");
    EXPECT_EQ(sink->rollCount(), 1);
    EXPECT_EQ(contents(), QByteArray("three\nfour\n"));
}

TEST_F(LogFileSinkTest, ContinuesAnExistingFileAndCountsItsSize)
{
    {
        auto sink = makeSink(30, 60'000);
        write(*sink, std::string(19, 'o')); // 20 bytes
    }
    auto sink = makeSink(30, 60'000);
    write(*sink, "new"); // 24 bytes in all
    EXPECT_EQ(contents(), QByteArray(19, 'o') + "\nnew\n");
    write(*sink, "more!!"); // would be 31
    EXPECT_EQ(sink->rollCount(), 1);
    EXPECT_EQ(contents(), QByteArray("more!!\n"));
}
