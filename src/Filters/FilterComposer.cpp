// SPDX-License-Identifier: MIT
#include "Filters/FilterComposer.h"

#include "Helpers/Logger.h"
#include "Filters/SavedFilters.h"
#include "Filters/SearchQuery.h"

#include <algorithm>

FilterComposer::Outcome FilterComposer::searchFilter(const QString &searchText)
{
    Outcome out;
    if (searchText.isEmpty())
        return out;
    QString text;
    if (searchText.startsWith(QLatin1String("p: ")) && searchText.size() >= 5) {
        text = searchText.mid(2);
    } else if (const SearchQuery::Result query = SearchQuery::translate(searchText); query.isQuery) {
        // Departure: a third form beside plain text and "p: ", as Android Studio users type it. An unknown
        // key is told in the status line rather than showing zero rows.
        out.filter = query.filter;
        out.error = query.error;
        out.showError = !out.error.isEmpty();
        if (out.showError)
            out.filter = Filter();
        return out;
    } else {
        // Inserted unescaped on purpose: a quote in the search text makes it unparseable and the search
        // does nothing.
        const QString s = searchText;
        text = QStringLiteral("(name CONTAINS[cd] '") + s + QStringLiteral("' OR text CONTAINS[cd] '") + s +
               QStringLiteral("' OR app CONTAINS[cd] '") + s + QStringLiteral("' OR pid CONTAINS[cd] '") + s +
               QStringLiteral("' OR tid CONTAINS[cd] '") + s + QStringLiteral("' OR note CONTAINS[cd] '") + s +
               QStringLiteral("')");
    }
    out.filter = Filter::parse(text);
    if (!out.filter.isValid()) {
        out.error = out.filter.errorString();
        out.filter = Filter();
    }
    return out;
}

FilterComposer::Outcome FilterComposer::activeFilter(const SavedFilters &saved, const QList<int> &selectedRows,
                                                     int selectedRow, const QString &searchText)
{
    QList<Filter> parts;
    if (selectedRow > 0) {
        for (const QString &name : saved.namesForRows(selectedRows))
            parts << saved.filter(name);
    }
    Outcome search = searchFilter(searchText);
    if (search.failed())
        return search;
    parts << search.filter;
    return Outcome{Filter::andOf(parts), QString()};
}

QString FilterComposer::unknownKeyError(const Filter &filter)
{
    if (!filter.isValid())
        return {};
    if (filter.kind() == Filter::Kind::Comparison) {
        if (LogEntry::fieldForKey(filter.key()))
            return {};
        // Departure: such a filter used to be accepted and silently match nothing.
        return QStringLiteral("Unknown key \"%1\": the keys are idx, time, app, pid, tid, type (the level), "
                              "name (the tag), text and note")
            .arg(filter.key());
    }
    for (const Filter &part : filter.parts()) {
        if (QString error = unknownKeyError(part); !error.isEmpty())
            return error;
    }
    return {};
}

QString FilterComposer::statusText(const Filter &active)
{
    return active.isValid() ? QStringLiteral("Filter: %1").arg(active.toString())
                            : QStringLiteral("Filter: All Messages");
}

QString FilterComposer::quickFilterSearchText(const QString &columnTitle, const QString &value)
{
    QF_LOG(QStringLiteral("col:%1, value:%2").arg(columnTitle, value));
    if (columnTitle.compare(QLatin1String("type"), Qt::CaseInsensitive) == 0)
        return QStringLiteral("p: type ==[cd] '") + value + QLatin1Char('\'');
    return value;
}

Filter FilterComposer::cellComparison(const QString &key, const QString &value, bool include)
{
    return Filter::comparison(key, include ? Filter::Operator::Equal : Filter::Operator::NotEqual,
                              Filter::CaseInsensitive | Filter::DiacriticInsensitive, value);
}

QString FilterComposer::cellFilterName(const QString &columnTitle, const QString &value)
{
    return columnTitle + QLatin1Char('_') + value;
}

Filter FilterComposer::narrowed(const Filter &old, const QString &key, const QString &value, bool include)
{
    const Filter cell = cellComparison(key, value, include);
    if (old.isValid() && old.kind() == Filter::Kind::And)
        return Filter::andOf(old.parts() << cell);
    return Filter::andOf({old, cell});
}

std::optional<Filter> FilterComposer::narrowSelectedFilter(SavedFilters &saved, int selectedRow, const QString &key,
                                                           const QString &value, bool include)
{
    if (selectedRow < 2)
        return std::nullopt;
    const QString name = saved.nameForRow(selectedRow);
    if (name.isEmpty())
        return std::nullopt;
    const Filter f = narrowed(saved.filter(name), key, value, include);
    if (!f.isValid())
        return std::nullopt;
    QF_LOG(QStringLiteral("col:%1, value:%2, include:%3, predicate:%4")
               .arg(key, value)
               .arg(include ? 1 : 0)
               .arg(f.toString()));
    saved.setFilter(name, f);
    saved.save();
    return f;
}

QString FilterComposer::columnTitle(const QString &key)
{
    static const QList<std::pair<QString, QString>> titles = {
        {QStringLiteral("app"), QStringLiteral("APP")},   {QStringLiteral("pid"), QStringLiteral("PID")},
        {QStringLiteral("tid"), QStringLiteral("TID")},   {QStringLiteral("type"), QStringLiteral("Type")},
        {QStringLiteral("name"), QStringLiteral("Tag")},  {QStringLiteral("text"), QStringLiteral("Text")},
        {QStringLiteral("note"), QStringLiteral("Note")},
    };
    const auto it = std::find_if(titles.cbegin(), titles.cend(), [&](const auto &t) { return t.first == key; });
    return it == titles.cend() ? QString() : it->second;
}
