// SPDX-License-Identifier: MIT
#pragma once

#include "Filters/Filter.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>
#include <utility>

#include <functional>

// The user's named filters. Their persistent form is a map from name to the printed filter text, read
// and written whole through the Storage the owner passes in (the window keeps it under "predicates").
// Export and import files are property lists (XML on export, XML or binary on import) whose root
// dictionary maps names to filter texts; extension "filters".
//
// GUI-thread object: the list window reads sortedNames() for its rows, where row 0 stands for no saved
// filter and row r (r >= 1) for sortedNames()[r - 1].
class SavedFilters
{
public:
    static constexpr QStringView FileExtension = u"filters";

    using Texts = QMap<QString, QString>; // name -> printed filter text
    struct Storage
    {
        std::function<std::optional<Texts>()> read; // nothing when nothing was ever stored
        std::function<void(const Texts &)> write;
    };
    // Without a read or write function the filters live in memory only.
    explicit SavedFilters(Storage storage = {});

    // The seven filters created on first run: (name, text) in table order, texts as written by hand.
    static const QList<std::pair<QString, QString>> &defaultFilters();

    struct LoadResult
    {
        bool createdDefaults = false;
        QString error; // a stored text that did not parse: loading stopped at that filter
        bool ok() const { return error.isEmpty(); }
    };
    // Reads the storage; when it holds nothing, first stores the default filters. An emptied list stays
    // empty: the defaults come only when nothing was ever stored.
    LoadResult load();
    // Writes every filter's printed text under its name.
    void save() const;

    const QStringList &sortedNames() const { return m_sortedNames; } // case-insensitive order
    int count() const { return int(m_sortedNames.size()); }
    bool contains(const QString &name) const { return m_filters.contains(name); }
    Filter filter(const QString &name) const { return m_filters.value(name); }
    QString nameForRow(int row) const;                  // empty for row 0 or out of range
    int rowForName(const QString &name) const;          // -1 when absent
    QStringList namesForRows(const QList<int> &rows) const; // ascending rows; row 0 contributes nothing

    // Adds or replaces in memory; save() persists.
    void setFilter(const QString &name, const Filter &filter);
    void remove(const QStringList &names);
    void clear();

    // base (or "unnamed" when empty) if free, else "base-1", "base-2", ...
    QString newUnusedPredicateName(const QString &base = QString()) const;

    // Writes the named filters as an XML property list. False when the file cannot be written.
    bool exportFilters(const QString &path, const QStringList &names) const;

    // Importing a filters file takes two steps, so the window can ask in between. A file that is not a
    // dictionary of filter texts imports nothing. Otherwise every text that parses is imported, every
    // other one is skipped with its reason, and names already present are replaced only when the user
    // agrees (one question for all of them).
    struct ImportPlan
    {
        QString error;                              // the file as a whole was refused
        QList<std::pair<QString, Filter>> filters;  // the ones that parse, in the order of their texts
        QList<std::pair<QString, QString>> invalid; // name, why it does not parse
        QStringList existing;                       // names in `filters` already present
    };
    ImportPlan readImport(const QString &path) const;

    struct ImportResult
    {
        QStringList imported;                       // stored, in import order
        QList<std::pair<QString, QString>> skipped; // name, why
        QString error;                              // the plan's refusal: nothing imported
        bool ok() const { return error.isEmpty(); }
        QString summary() const;                    // what the user is told
    };
    // Stores the plan's filters (the names are sorted once, whatever their number) and saves.
    ImportResult applyImport(const ImportPlan &plan, bool replaceExisting);

    // The property-list codec, separate from files for tests.
    static QByteArray toPropertyList(const QMap<QString, QString> &texts);
    // Name -> text of an XML or binary property list whose root is a dictionary of strings (FilterFile).
    static std::optional<QMap<QString, QString>> fromPropertyList(const QByteArray &data, QString *error = nullptr);

private:
    void rebuildSortedNames();

    Storage m_storage;
    QHash<QString, Filter> m_filters;
    QStringList m_sortedNames;
};
