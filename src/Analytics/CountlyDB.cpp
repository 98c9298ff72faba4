// SPDX-License-Identifier: MIT
#include "Analytics/CountlyDB.h"

#include "Helpers/Logger.h"

#include <QFile>
#include <QSqlError>
#include <QSqlQuery>

#include <atomic>

namespace {

QString nextConnectionName()
{
    static std::atomic<int> counter{0};
    return QStringLiteral("countly-%1").arg(counter.fetch_add(1));
}

} // namespace

CountlyDB::CountlyDB(const QString &path)
{
    if (open(path)) {
        m_persistent = true;
        return;
    }
    const QString reason = m_db.lastError().text();
    close();
    QF_LOG_ERROR(QStringLiteral("analytics store %1 unusable (%2): replaced").arg(path, reason));
    for (const QString &suffix : {QString(), QStringLiteral("-journal"), QStringLiteral("-wal"), QStringLiteral("-shm")})
        QFile::remove(path + suffix);
    if (open(path)) {
        m_persistent = true;
        return;
    }
    close();
    QF_LOG_ERROR(QStringLiteral("analytics store %1 cannot be created: kept in memory").arg(path));
    open(QStringLiteral(":memory:"));
}

CountlyDB::~CountlyDB()
{
    close();
}

bool CountlyDB::open(const QString &databaseName)
{
    m_connectionName = nextConnectionName();
    m_db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), m_connectionName);
    m_db.setDatabaseName(databaseName);
    if (!m_db.open())
        return false;
    QSqlQuery query(m_db);
    // A file that is not a database at all opens fine and fails here.
    if (!query.exec(QStringLiteral("PRAGMA quick_check")) || !query.next() || query.value(0).toString() != "ok")
        return false;
    // A write-ahead log synced at checkpoints: a commit costs no fsync, and a power cut loses at most
    // the last few statistics.
    query.exec(QStringLiteral("PRAGMA journal_mode=WAL"));
    query.exec(QStringLiteral("PRAGMA synchronous=NORMAL"));
    return query.exec(QStringLiteral("CREATE TABLE IF NOT EXISTS Event (id INTEGER PRIMARY KEY AUTOINCREMENT, "
                                      "json TEXT NOT NULL)")) &&
           query.exec(QStringLiteral("CREATE TABLE IF NOT EXISTS Data (id INTEGER PRIMARY KEY AUTOINCREMENT, "
                                      "post TEXT NOT NULL)"));
}

void CountlyDB::close()
{
    if (m_connectionName.isEmpty())
        return;
    m_db.close();
    m_db = QSqlDatabase();
    QSqlDatabase::removeDatabase(m_connectionName);
    m_connectionName.clear();
}

void CountlyDB::add(const char *table, const char *column, const QByteArray &text, qint64 limit)
{
    QSqlQuery query(m_db);
    const QString name = QString::fromLatin1(table);
    if (const qint64 stored = count(table); stored >= limit) {
        query.exec(QStringLiteral("DELETE FROM %1 WHERE id IN (SELECT id FROM %1 ORDER BY id LIMIT %2)")
                       .arg(name)
                       .arg(stored - limit + 1));
    }
    query.prepare(QStringLiteral("INSERT INTO %1 (%2) VALUES (?)").arg(name, QString::fromLatin1(column)));
    query.addBindValue(QString::fromUtf8(text));
    if (!query.exec())
        QF_LOG(QStringLiteral("analytics store: insert failed: %1").arg(query.lastError().text()));
}

void CountlyDB::addEvent(const QByteArray &json)
{
    add("Event", "json", json, MaxEvents);
}

QList<CountlyDB::Stored> CountlyDB::events() const
{
    QList<Stored> result;
    QSqlQuery query(m_db);
    if (query.exec(QStringLiteral("SELECT id, json FROM Event ORDER BY id"))) {
        while (query.next())
            result.append({query.value(0).toLongLong(), query.value(1).toString().toUtf8()});
    }
    return result;
}

void CountlyDB::removeEvents(qint64 lastId)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("DELETE FROM Event WHERE id <= ?"));
    query.addBindValue(lastId);
    query.exec();
}

void CountlyDB::addRequest(const QByteArray &post)
{
    add("Data", "post", post, MaxRequests);
}

std::optional<CountlyDB::Stored> CountlyDB::firstRequest() const
{
    QSqlQuery query(m_db);
    if (!query.exec(QStringLiteral("SELECT id, post FROM Data ORDER BY id LIMIT 1")) || !query.next())
        return std::nullopt;
    return Stored{query.value(0).toLongLong(), query.value(1).toString().toUtf8()};
}

void CountlyDB::removeRequest(qint64 id)
{
    QSqlQuery query(m_db);
    query.prepare(QStringLiteral("DELETE FROM Data WHERE id = ?"));
    query.addBindValue(id);
    query.exec();
}

qint64 CountlyDB::count(const char *table) const
{
    QSqlQuery query(m_db);
    if (query.exec(QStringLiteral("SELECT COUNT(*) FROM %1").arg(QString::fromLatin1(table))) && query.next())
        return query.value(0).toLongLong();
    return 0;
}

qint64 CountlyDB::eventCount() const
{
    return count("Event");
}

qint64 CountlyDB::requestCount() const
{
    return count("Data");
}
