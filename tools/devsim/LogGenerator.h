// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>

// The simulated device's processes and the logcat lines they write.
// Lines use logcat's threadtime layout, "MM-dd HH:mm:ss.SSS  pid  tid L tag     : text\n",
// with times that never go backwards, pids taken from processTable() and a mix of
// levels, tags, long and JSON messages and non-ASCII text.
class LogGenerator
{
public:
    struct Process
    {
        QByteArray user;
        int pid;
        int ppid;
        QByteArray name;
    };

    // seed 0: random content and wall-clock times. Any other seed: the same lines every run,
    // with times counting from a fixed date.
    explicit LogGenerator(uint64_t seed);

    const QList<Process> &processes() const { return m_processes; }

    // "ps -A" output of a current device (toybox layout).
    QByteArray processTable() const;
    // "ps" output of an old device (toolbox layout; it lists every process without -A).
    QByteArray oldProcessTable() const;

    // Messages become "seq N" (N: lines written before), for checking that none is lost or doubled.
    void setSequenceNumbered(bool on) { m_sequence = on; }

    // Appends one line; returns its length.
    qsizetype appendLine(QByteArray &out);

    // Lines written so far.
    uint64_t lineCount() const { return m_lines; }

    // Moves the clock back so the next `lines` lines end about now: used to pre-fill the buffer.
    void startInPast(int lines);

private:
    uint64_t random();
    int64_t nextTimeMs();
    void appendTimePrefix(char *&out, int64_t ms);

    QList<Process> m_processes;
    struct Writer
    {
        int process;   // index into m_processes
        int threads;   // tids are pid, pid+1, ...
        QList<QByteArray> tags;
    };
    QList<Writer> m_writers;
    uint64_t m_state;
    bool m_deterministic;
    int64_t m_lastMs = 0;
    int m_pastLines = 0;
    int64_t m_cachedSecond = -1;
    char m_secondPrefix[16] = {};
    uint64_t m_lines = 0;
    bool m_sequence = false;
};
