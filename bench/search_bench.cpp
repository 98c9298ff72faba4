// SPDX-License-Identifier: MIT
// Reading tools over a big log. Goals: a search for an expression found nowhere over 1,000,000 rows in at
// most 0.3 s; one over a full 55,000-row view cheap enough to run on every key typed; the process tree
// over 1,000,000 rows in under 0.5 s. The rows come from a 1,000,000-line threadtime file opened as the
// Open command opens it (generated once with quillfern-loggen, the file open_file_bench reads).
#include "Log/LogDocument.h"
#include "Presentation/LogSearch.h"
#include "Presentation/ProcessTree.h"
#include "support/BenchMain.h"

#include <benchmark/benchmark.h>

#include <QFileInfo>
#include <QProcess>

namespace {

const QList<LogEntry> &fileEntries()
{
    static const QList<LogEntry> entries = [] {
        const QString path = QStringLiteral("/tmp/quillfern-bench-1m.log");
        if (!QFileInfo::exists(path)) {
            QProcess loggen;
            loggen.start(QStringLiteral(QF_TOOLS_DIR "/quillfern-loggen"),
                         {QStringLiteral("--lines"), QStringLiteral("1000000"), QStringLiteral("--seed"),
                          QStringLiteral("1"), path});
            loggen.waitForFinished(-1);
        }
        LogIndexCounter counter;
        return LogDocument::readTextFile(path, counter).entries;
    }();
    return entries;
}

void BM_SearchFoundNowhere(benchmark::State &state)
{
    const QList<LogEntry> rows = fileEntries().mid(0, state.range(0));
    for (auto _ : state) {
        // From the last row backwards, every row tried, as typing without a selection does.
        const LogSearch::Result result = LogSearch::find(rows, QStringLiteral("zq[0-9]+vx"), std::nullopt, 0);
        benchmark::DoNotOptimize(result.row);
    }
    state.counters["rows"] = double(rows.size());
}
BENCHMARK(BM_SearchFoundNowhere)->Arg(55000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SearchLiteralFoundNowhere(benchmark::State &state)
{
    const QList<LogEntry> rows = fileEntries().mid(0, state.range(0));
    for (auto _ : state) {
        const LogSearch::Result result = LogSearch::find(rows, QStringLiteral("NoSuchTag"), 0, 1);
        benchmark::DoNotOptimize(result.row);
    }
}
BENCHMARK(BM_SearchLiteralFoundNowhere)->Arg(55000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_ProcessTree(benchmark::State &state)
{
    const QList<LogEntry> rows = fileEntries().mid(0, state.range(0));
    for (auto _ : state) {
        const QString tree = ProcessTree::text(rows);
        benchmark::DoNotOptimize(tree.size());
    }
}
BENCHMARK(BM_ProcessTree)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    return bench::runBenchmarks(argc, argv);
}
