// SPDX-License-Identifier: MIT
#pragma once

#include "DeviceConfig.h"
#include "LogGenerator.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QTimer>

#include <deque>

class LogcatStream;

// The device's log: a ring of recent lines replayed to each new logcat, plus the live lines.
// At a fixed rate a timer writes lines whether or not anyone reads (as a device does); when
// flooding, lines are made on demand whenever a reader has sent everything it had.
class DeviceLog : public QObject
{
    Q_OBJECT
public:
    DeviceLog(const DeviceConfig &config, QObject *parent = nullptr);

    const LogGenerator &generator() const { return m_generator; }

    QByteArray snapshot() const;
    void clear();

    void addReader(LogcatStream *reader);
    void removeReader(LogcatStream *reader);

    // Flood mode: writes about `bytes` of new lines to every reader. No-op at a fixed rate.
    void produceOnDemand(qsizetype bytes);
    bool floods() const { return m_config.rate <= 0; }

private:
    void onTick();
    void produce(qsizetype maxLines, qsizetype maxBytes);
    void remember(const QByteArray &batch, qsizetype lines);
    int64_t linesLeft() const;

    DeviceConfig m_config;
    LogGenerator m_generator;
    std::deque<QByteArray> m_ring;
    QList<LogcatStream *> m_readers;
    QTimer m_timer;
    QElapsedTimer m_clock;
    int64_t m_produced = 0; // live lines, not counting the pre-filled buffer
};
