// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QHash>
#include <QString>
#include <QStringView>

#include <atomic>
#include <mutex>
#include <optional>

// Process ids to application names for one live session, with the state of the process-list lookup.
// Its mutex is the datasource's "pid lock". Every method takes it for its own duration only and calls
// nothing outside this class, so holding it can never nest with the datasource's log lock.
class ProcessNameMap
{
public:
    // What a name reported by the device did.
    enum class DeviceNameResult {
        UserNameKept, // the user named this pid: the device's name is ignored
        Renamed,      // the pid was known already; its name is replaced
        NewPid,       // first name for this pid: entries waiting for it can be named
    };

    // One line of "ps" output: the first piece (from the left) that is an integer is the pid, the last
    // piece the name. Pieces are split at every single blank; lines of fewer than 4 pieces and the
    // "<pre-initialized>" placeholder give nothing.
    struct PsLine
    {
        QString pid;
        QString name;
    };
    static std::optional<PsLine> parsePsLine(QStringView line);

    ProcessNameMap();

    // Empty when the pid has no name.
    QString nameFor(const QString &pid) const;
    QString nameFor(QStringView pid) const;
    // nameFor for a pid given as UTF-8, answered as UTF-8. For the live line path: the answers are
    // remembered per thread until the map next changes, so a known pid costs neither the pid lock
    // nor an allocation nor a shared count. The view is valid until the next call on this thread.
    QByteArrayView nameForUtf8(QByteArrayView pid) const;

    DeviceNameResult setDeviceName(const QString &pid, const QString &name);
    // The user's name wins over the device's and survives resetToUserNames().
    void setUserName(const QString &pid, const QString &name);
    // Forgets the device's names (end of a stream, clearing): only the user's names stay.
    void resetToUserNames();

    // Lookup bookkeeping. beginLookup: true when the caller is to start a lookup now (it is recorded
    // as running since `now`); false when one is running, which then asks for another when it ends,
    // or when a failed one started less than `retryDelay` seconds ago (that request is not kept).
    bool beginLookup(double now);
    // The running lookup ended with an answer; true when another was asked for meanwhile (the caller
    // starts it).
    bool finishLookup();
    // The running lookup ended without an answer: it is no longer running, and the next one may start
    // `retryDelay` seconds after it started. Nothing when none runs.
    void failLookup();
    static constexpr double retryDelay = 5.0;
    // Clears running, asked-for and the start time (clearing the log; a lookup that never answered).
    void resetLookup();
    bool lookupRunning() const;
    // Start time of the running lookup; absent after resetLookup().
    std::optional<double> lookupTime() const;

private:
    void changed(); // under m_mutex, after every change of m_pidMap

    mutable std::mutex m_mutex;
    // Unique across all maps (a global sequence), so a per-thread memo never mistakes one map's
    // state for another's. Written under m_mutex, read without it.
    std::atomic<quint64> m_generation;
    QHash<QString, QString> m_pidMap;
    QHash<QString, QString> m_userDefinedPidMap;
    bool m_lookupRunning = false;
    bool m_lookupNeeded = false;
    std::optional<double> m_lookupTime;
    std::optional<double> m_retryAfter; // set while lookups keep failing
};
