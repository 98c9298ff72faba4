// SPDX-License-Identifier: MIT
// Lines per second of live (format 1) and file (format 3) threadtime parsing into entries, one core.
// Goal: at least 2,000,000 lines/s.
#include "Log/LogLineParser.h"

#include <benchmark/benchmark.h>

#include <QHash>
#include <QProcess>
#include <QTemporaryDir>

#include <random>

namespace {

// Lines from the seeded generator, so the mix matches the open-file benchmark.
const QList<QByteArray> &lines()
{
    static const QList<QByteArray> all = [] {
        QTemporaryDir dir;
        const QString path = dir.filePath("lines.log");
        QProcess::execute(QStringLiteral(QF_TOOLS_DIR "/quillfern-loggen"),
                          {"--lines", "200000", "--seed", "3", path});
        QFile f(path);
        QList<QByteArray> out;
        if (f.open(QIODevice::ReadOnly)) {
            for (const QByteArray &l : f.readAll().split('\n')) {
                if (!l.isEmpty())
                    out << l;
            }
        }
        return out;
    }();
    return all;
}

void parse(benchmark::State &state, int format)
{
    const QList<QByteArray> &input = lines();
    if (input.isEmpty()) {
        state.SkipWithError("quillfern-loggen produced no lines");
        return;
    }
    QHash<QString, QString> pidMap;
    for (int pid = 0; pid < 40000; pid += 3)
        pidMap.insert(QString::number(pid), QStringLiteral("com.example.app%1").arg(pid));
    const LogLineParser::AppLookup lookup = [&pidMap](const QString &pid) { return pidMap.value(pid); };
    LogIndexCounter counter;
    qsizetype i = 0;
    qint64 made = 0;
    for (auto _ : state) {
        LogEntry e = LogLineParser::parseThreadTimeLine(QByteArrayView(input[i]), format, counter,
                                                        format == LogLineFormatStream ? lookup : LogLineParser::AppLookup());
        made += !e.isNull();
        benchmark::DoNotOptimize(e);
        if (++i == input.size())
            i = 0;
    }
    state.SetItemsProcessed(state.iterations());
    state.counters["entries"] = double(made);
}

void BM_ParseStreamLine(benchmark::State &state)
{
    parse(state, LogLineFormatStream);
}
void BM_ParseFileLine(benchmark::State &state)
{
    parse(state, LogLineFormatThreadTime);
}

// The file reader's inner loop: fields only, rows into a shared block (no per-line allocation).
void BM_ParseFieldsOnly(benchmark::State &state)
{
    const QList<QByteArray> &input = lines();
    LogEntryFields fields;
    qsizetype i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(LogLineParser::parseFields(input[i], LogLineFormatThreadTime, &fields));
        if (++i == input.size())
            i = 0;
    }
    state.SetItemsProcessed(state.iterations());
}

} // namespace

BENCHMARK(BM_ParseStreamLine);
BENCHMARK(BM_ParseFileLine);
BENCHMARK(BM_ParseFieldsOnly);
BENCHMARK_MAIN();
