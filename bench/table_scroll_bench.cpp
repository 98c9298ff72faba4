// SPDX-License-Identifier: MIT
// Cost of the log table model's two hot paths: one update tick over a full 55000-row view (append and
// prune), and the data() calls of one painted screen of rows while scrolling.
#include "Presentation/LogTableModel.h"

#include <benchmark/benchmark.h>

namespace {

constexpr int Capacity = 55000;

QVector<LogEntry> makeEntries(quint64 first, int count)
{
    static const char *const levels[] = {"V", "D", "I", "W", "E", "F"};
    QVector<LogEntry> entries;
    entries.reserve(count);
    for (int i = 0; i < count; ++i) {
        const quint64 idx = first + quint64(i);
        entries.append(LogEntry::create(
            idx, {QStringLiteral("01-23 14:05:06.789"), QStringLiteral("com.example.app"), QStringLiteral("1234"),
                  QStringLiteral("-"), QString::fromLatin1(levels[idx % 6]), QStringLiteral("ActivityManager"),
                  QStringLiteral(" Start proc %1:com.example.app/u0a123 for activity with a timeout").arg(idx),
                  QString()}));
    }
    return entries;
}

// One update tick on a full view: from the rows shown to the rows now held.
void tick(benchmark::State &state, qsizetype dropped)
{
    const QVector<LogEntry> all = makeEntries(0, Capacity + 250);
    const QVector<LogEntry> before = all.mid(0, Capacity);
    const QVector<LogEntry> after = all.mid(dropped);
    LogTableModel model;
    for (auto _ : state) {
        state.PauseTiming();
        model.setRows({});
        model.setRows(before);
        state.ResumeTiming();
        benchmark::DoNotOptimize(model.setRows(after));
    }
}
// 250 new lines appended (the common live case); the oldest 1000 dropped and 250 new (a prune).
BENCHMARK_CAPTURE(tick, AppendTick, 0)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(tick, PruneTick, 1000)->Unit(benchmark::kMicrosecond);

// What one frame of scrolling asks: 45 visible rows x 8 columns, text, colour, font and the search mark.
void BM_PaintedScreen(benchmark::State &state)
{
    LogTableModel model;
    model.setRows(makeEntries(0, 1000000));
    model.setSearchText(QStringLiteral("TIMEOUT"));
    int top = 0;
    for (auto _ : state) {
        for (int row = top; row < top + 45; ++row) {
            for (int column = 1; column < LogEntry::FieldCount; ++column) {
                const QModelIndex index = model.index(row, column);
                benchmark::DoNotOptimize(model.data(index, Qt::DisplayRole));
                benchmark::DoNotOptimize(model.data(index, Qt::ForegroundRole));
                benchmark::DoNotOptimize(model.data(index, Qt::FontRole));
                benchmark::DoNotOptimize(model.data(index, LogTableModel::HighlightRangeRole));
            }
        }
        top = (top + 45 * 97) % (1000000 - 45); // jump around the log like a dragged scroll bar
    }
}
BENCHMARK(BM_PaintedScreen)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
