// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QString>

#include <cstdint>

// Everything the command line says about the simulated device.
struct DeviceConfig
{
    QString model = QStringLiteral("Pixel Sim");
    QString product = QStringLiteral("sim_phone");
    QString deviceName = QStringLiteral("simphone");
    double rate = 20;          // live log lines per second; 0 floods as fast as the server takes them
    int buffer = 300;          // lines the log holds and replays to a new logcat
    int64_t lines = -1;        // live lines to produce in total; negative: no limit
    uint64_t seed = 0;         // 0: random content and wall-clock times
    bool oldDevice = false;    // "ps -A" fails with "bad pid", "ps" lists all
    bool crlf = false;         // shell output has every LF turned into CR LF, as an old pty does
    bool sequence = false;     // every message is "seq N", N counting every line from 0
    int dropCycles = 1;        // drops (and returns) of --drop-after in a row
    QSize screenSize{1080, 2400}; // pixels of "screencap -p"
    QString inputLog;          // file that records "input ..." commands, one per line
    uint32_t maxData = 256 * 1024;
};
