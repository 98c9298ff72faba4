// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QSqlDatabase>
#include <QString>

#include <optional>

// The analytics client's persistent queue: an SQLite file ("Countly.sqlite") with the entities "Event"
// (events not yet sent as a request) and "Data" (requests not yet sent, each one form-encoded parameter
// string in `post`), so both survive a restart.
//
// A file that cannot be opened or fails SQLite's quick check is logged once and replaced by a new one;
// when even that fails the queue lives in memory for this run. Nothing here ever stops the program.
//
// Lives on the thread that created it (a Qt SQL connection may only be used there).
class CountlyDB
{
public:
    static constexpr const char *FileName = "Countly.sqlite";
    // Requests kept at most. When full, the oldest request is dropped for each new one: after a long
    // outage the earliest session updates go first, the newest activity is kept.
    static constexpr qint64 MaxRequests = 1000;
    // Events kept at most (they are normally sent in tens); when full the oldest event is dropped.
    static constexpr qint64 MaxEvents = 1000;

    struct Stored
    {
        qint64 id = 0;
        QByteArray text;
    };

    explicit CountlyDB(const QString &path);
    ~CountlyDB();
    CountlyDB(const CountlyDB &) = delete;
    CountlyDB &operator=(const CountlyDB &) = delete;

    // False when the queue lives in memory because no file could be used.
    bool isPersistent() const { return m_persistent; }

    void addEvent(const QByteArray &json);
    QList<Stored> events() const;
    qint64 eventCount() const;
    // Removes the events up to and including lastId.
    void removeEvents(qint64 lastId);

    void addRequest(const QByteArray &post);
    std::optional<Stored> firstRequest() const;
    void removeRequest(qint64 id);
    qint64 requestCount() const;

private:
    bool open(const QString &databaseName);
    void close();
    qint64 count(const char *table) const;
    void add(const char *table, const char *column, const QByteArray &text, qint64 limit);

    QString m_connectionName;
    QSqlDatabase m_db;
    bool m_persistent = false;
};
