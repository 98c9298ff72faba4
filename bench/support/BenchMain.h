// SPDX-License-Identifier: MIT
#pragma once

#include <QCoreApplication>

#include <benchmark/benchmark.h>

namespace bench {

// The main of a plain Google Benchmark program; the event loop is there for queued calls and timers.
inline int runBenchmarks(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

} // namespace bench
