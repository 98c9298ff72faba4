// SPDX-License-Identifier: MIT
#include "Filters/SavedFilters.h"

#include "Filters/FilterFile.h"
#include "Helpers/Logger.h"

#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

namespace {

// A filters file is a handful of short texts; anything far larger is not one.
constexpr qint64 MaxImportFileSize = 16 * 1024 * 1024;

bool lessCaseInsensitive(const QString &a, const QString &b)
{
    const int c = QString::compare(a, b, Qt::CaseInsensitive);
    return c != 0 ? c < 0 : a < b; // ties broken so the order is total
}

struct PlistDeleter
{
    void operator()(void *node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

QString describeMap(const SavedFilters::Texts &texts)
{
    QStringList lines;
    for (auto it = texts.cbegin(); it != texts.cend(); ++it)
        lines << it.key() + QStringLiteral(" = ") + it.value();
    return QLatin1Char('{') + lines.join(QStringLiteral("; ")) + QLatin1Char('}');
}

} // namespace

const QList<std::pair<QString, QString>> &SavedFilters::defaultFilters()
{
    static const QList<std::pair<QString, QString>> filters = {
        {QStringLiteral("LogLevel Verbose"), QStringLiteral("type IN[cd] 'V,D,I,W,E,F,A'")},
        {QStringLiteral("LogLevel Debug"), QStringLiteral("type IN[cd] 'D,I,W,E,F,A'")},
        {QStringLiteral("LogLevel Info"), QStringLiteral("type IN[cd] 'I,W,E,F,A'")},
        {QStringLiteral("LogLevel Warn"), QStringLiteral("type IN[cd] 'W,E,F,A'")},
        {QStringLiteral("LogLevel Error"), QStringLiteral("type IN[cd] 'E,F,A'")},
        {QStringLiteral("Has Note"), QStringLiteral("note !=[cd] ''")},
        {QStringLiteral("JSON"),
         QStringLiteral("(text CONTAINS[cd] '{' AND text CONTAINS[cd] ',' AND text CONTAINS[cd] '\"' AND "
                        "text CONTAINS[cd] ':' AND text CONTAINS[cd] '}') OR (text CONTAINS[cd] '[' AND "
                        "text CONTAINS[cd] ',' AND text CONTAINS[cd] '\"' AND text CONTAINS[cd] ']')")},
    };
    return filters;
}

SavedFilters::SavedFilters(Storage storage)
    : m_storage(std::move(storage))
{
}

SavedFilters::LoadResult SavedFilters::load()
{
    LoadResult result;
    std::optional<Texts> stored = m_storage.read ? m_storage.read() : std::nullopt;
    if (!stored) {
        Texts defaults;
        for (const auto &[name, text] : defaultFilters())
            defaults.insert(name, Filter::parse(text).toString());
        if (m_storage.write)
            m_storage.write(defaults);
        QF_LOG(QStringLiteral("Created default predicates: %1").arg(describeMap(defaults)));
        result.createdDefaults = true;
        stored = std::move(defaults);
    }

    QStringList names = stored->keys();
    std::sort(names.begin(), names.end(), lessCaseInsensitive);
    m_filters.clear();
    for (const QString &name : names) {
        Filter f = Filter::parse(stored->value(name));
        if (!f.isValid()) {
            result.error = QStringLiteral("Saved filter \"%1\" does not parse: %2").arg(name, f.errorString());
            QF_LOG_ERROR(result.error);
            break;
        }
        m_filters.insert(name, f);
    }
    rebuildSortedNames();
    return result;
}

void SavedFilters::save() const
{
    if (!m_storage.write)
        return;
    Texts texts;
    for (auto it = m_filters.cbegin(); it != m_filters.cend(); ++it)
        texts.insert(it.key(), it.value().toString());
    m_storage.write(texts);
}

QString SavedFilters::nameForRow(int row) const
{
    return row >= 1 && row <= m_sortedNames.size() ? m_sortedNames.at(row - 1) : QString();
}

int SavedFilters::rowForName(const QString &name) const
{
    const qsizetype i = m_sortedNames.indexOf(name);
    return i < 0 ? -1 : int(i) + 1;
}

QStringList SavedFilters::namesForRows(const QList<int> &rows) const
{
    QList<int> sorted = rows;
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
    QStringList names;
    for (int row : sorted) {
        const QString name = nameForRow(row);
        if (!name.isEmpty())
            names << name;
    }
    return names;
}

void SavedFilters::setFilter(const QString &name, const Filter &filter)
{
    m_filters.insert(name, filter);
    rebuildSortedNames();
}

void SavedFilters::remove(const QStringList &names)
{
    for (const QString &name : names)
        m_filters.remove(name);
    rebuildSortedNames();
}

void SavedFilters::clear()
{
    m_filters.clear();
    m_sortedNames.clear();
}

QString SavedFilters::newUnusedPredicateName(const QString &base) const
{
    const QString stem = base.isEmpty() ? QStringLiteral("unnamed") : base;
    if (!m_filters.contains(stem))
        return stem;
    for (int n = 1;; ++n) {
        const QString candidate = QStringLiteral("%1-%2").arg(stem).arg(n);
        if (!m_filters.contains(candidate))
            return candidate;
    }
}

void SavedFilters::rebuildSortedNames()
{
    m_sortedNames = m_filters.keys();
    std::sort(m_sortedNames.begin(), m_sortedNames.end(), lessCaseInsensitive);
}

QByteArray SavedFilters::toPropertyList(const QMap<QString, QString> &texts)
{
    PlistPtr dict(plist_new_dict());
    for (auto it = texts.cbegin(); it != texts.cend(); ++it)
        plist_dict_set_item(static_cast<plist_t>(dict.get()), it.key().toUtf8().constData(),
                            plist_new_string(it.value().toUtf8().constData()));
    char *xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(static_cast<plist_t>(dict.get()), &xml, &length);
    if (!xml)
        return {};
    QByteArray out(xml, qsizetype(length));
    plist_to_xml_free(xml);
    return out;
}

std::optional<QMap<QString, QString>> SavedFilters::fromPropertyList(const QByteArray &data, QString *error)
{
    if (data.isEmpty()) {
        if (error)
            *error = QStringLiteral("Not a filters file: it is empty.");
        return std::nullopt;
    }
    const std::optional<QList<FilterFile::Entry>> entries = FilterFile::read(data, error);
    if (!entries)
        return std::nullopt;
    QMap<QString, QString> texts;
    for (const FilterFile::Entry &entry : *entries)
        texts.insert(entry.name, entry.text);
    return texts;
}

bool SavedFilters::exportFilters(const QString &path, const QStringList &names) const
{
    QF_LOG(QStringLiteral("Save filter to: %1").arg(path));
    QMap<QString, QString> texts;
    for (const QString &name : names)
        if (m_filters.contains(name))
            texts.insert(name, m_filters.value(name).toString());
    const QByteArray xml = toPropertyList(texts);
    QSaveFile file(path);
    if (xml.isEmpty() || !file.open(QIODevice::WriteOnly) || file.write(xml) != xml.size())
        return false;
    return file.commit();
}

SavedFilters::ImportPlan SavedFilters::readImport(const QString &path) const
{
    QF_LOG(QStringLiteral("Open url: %1").arg(path));
    ImportPlan plan;
    const auto refuse = [&](const QString &why) {
        plan.error = why;
        QF_LOG_ERROR(why);
        return plan;
    };
    QFile file(path);
    // Only a regular file: a pipe would block the open and a device never end.
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return refuse(QStringLiteral("Cannot read %1: %2").arg(path, file.exists() ? file.errorString() : QStringLiteral("no such file")));
    if (file.size() > MaxImportFileSize)
        return refuse(QStringLiteral("Cannot import %1. Not a filters file: it is too large.").arg(path));
    QString why;
    const std::optional<QMap<QString, QString>> texts = fromPropertyList(file.readAll(), &why);
    if (!texts)
        return refuse(QStringLiteral("Cannot import %1. %2").arg(path, why));

    QList<std::pair<QString, QString>> ordered;
    for (auto it = texts->cbegin(); it != texts->cend(); ++it)
        ordered.append({it.key(), it.value()});
    std::stable_sort(ordered.begin(), ordered.end(),
                     [](const auto &a, const auto &b) { return lessCaseInsensitive(a.second, b.second); });
    for (const auto &[name, text] : ordered) {
        const Filter f = Filter::parse(text);
        if (!f.isValid()) {
            QF_LOG(QStringLiteral("Filter \"%1\" does not parse: %2").arg(name, f.errorString()));
            plan.invalid.append({name, f.errorString()});
            continue;
        }
        if (m_filters.contains(name))
            plan.existing << name;
        plan.filters.append({name, f});
    }
    return plan;
}

SavedFilters::ImportResult SavedFilters::applyImport(const ImportPlan &plan, bool replaceExisting)
{
    ImportResult result;
    result.error = plan.error;
    if (!plan.error.isEmpty())
        return result;
    result.skipped = plan.invalid;
    for (const auto &[name, filter] : plan.filters) {
        if (!replaceExisting && m_filters.contains(name)) {
            result.skipped.append({name, QStringLiteral("a filter of that name exists and was kept")});
            continue;
        }
        m_filters.insert(name, filter);
        result.imported << name;
    }
    QF_LOG(QStringLiteral("imported %1 filters, skipped %2").arg(result.imported.size()).arg(result.skipped.size()));
    if (!result.imported.isEmpty()) {
        rebuildSortedNames();
        save();
    }
    return result;
}

QString SavedFilters::ImportResult::summary() const
{
    if (!ok())
        return error;
    QString text = imported.size() == 1 ? QStringLiteral("Imported 1 filter.")
                                        : QStringLiteral("Imported %1 filters.").arg(imported.size());
    if (skipped.isEmpty())
        return text;
    // Enough to see what went wrong; the diagnostic log has every one.
    constexpr qsizetype shown = 10;
    text += QStringLiteral("\n\nSkipped %1:").arg(skipped.size());
    for (qsizetype i = 0; i < std::min(shown, skipped.size()); ++i)
        text += QStringLiteral("\n%1: %2").arg(skipped[i].first, skipped[i].second);
    if (skipped.size() > shown)
        text += QStringLiteral("\n… and %1 more").arg(skipped.size() - shown);
    return text;
}
