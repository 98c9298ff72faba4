// SPDX-License-Identifier: MIT
// The text helpers on the parse path: one call per line of a million-line log.
#include "Helpers/Logger.h"
#include "Helpers/TextHelpers.h"

#include <QDir>

#include <benchmark/benchmark.h>

namespace {

const QString Line = QStringLiteral(
    "01-23 14:05:06.789  1234  5678 I ActivityManager: Start proc 4321:com.example.app/u0a123 for activity");
const QString Tag = QStringLiteral("MyTag**com.example.app**(1234)");

void containsCaseSensitive(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(qf::contains(Line, u"com.example"));
}
BENCHMARK(containsCaseSensitive);

void containsIgnoringCase(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(qf::contains(Line, u"COM.EXAMPLE", true));
}
BENCHMARK(containsIgnoringCase);

void trimView(benchmark::State &state)
{
    const QString padded = QStringLiteral("  \t") + Line + QStringLiteral(" \t ");
    for (auto _ : state)
        benchmark::DoNotOptimize(qf::trim(QStringView(padded)));
}
BENCHMARK(trimView);

void trimNothingToRemove(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::DoNotOptimize(qf::trim(Line));
}
BENCHMARK(trimNothingToRemove);

void removeAppFromTag(benchmark::State &state)
{
    QString app;
    for (auto _ : state)
        benchmark::DoNotOptimize(qf::removeSubstringBetween(Tag, u"**", u"**", &app));
}
BENCHMARK(removeAppFromTag);

void isIntegerOfPid(benchmark::State &state)
{
    const QString pid = QStringLiteral("12345");
    for (auto _ : state)
        benchmark::DoNotOptimize(qf::isInteger(pid));
}
BENCHMARK(isIntegerOfPid);

// The caller's cost of one ordinary diagnostic line (queued to the logging thread).
void diagnosticLine(benchmark::State &state)
{
    qputenv("QUILLFERN_LOG_QUIET", "1");
    Logger::getInstance().registerLogger(QDir::tempPath() + QStringLiteral("/quillfern-bench-logs"));
    for (auto _ : state)
        QF_LOG(QStringLiteral("bad data: %1").arg(Line));
    Logger::getInstance().flush();
}
BENCHMARK(diagnosticLine);

} // namespace

BENCHMARK_MAIN();
