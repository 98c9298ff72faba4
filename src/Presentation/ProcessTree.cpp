// SPDX-License-Identifier: MIT
#include "Presentation/ProcessTree.h"

#include <QByteArrayView>

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace {

struct ProcessNode
{
    qsizetype lastRow = 0; // the line whose "app" names the process
    qint64 quantity = 0;
    qint64 threadLines = 0;
    std::unordered_map<std::string_view, qint64> threads;
};

// The field's bytes without a copy: only "app" and "note" are ever written after an entry is made, so
// pid and tid are always stored and live as long as the entry.
std::string_view fieldView(const LogEntry &entry, LogEntry::Field field)
{
    QByteArrayView view;
    entry.storedUtf8(field, &view);
    return {view.data(), size_t(view.size())};
}

QString fromView(std::string_view view)
{
    return QString::fromUtf8(view.data(), qsizetype(view.size()));
}

bool lessNumeric(const QString &a, const QString &b)
{
    return ProcessTree::numericCompare(a, b) < 0;
}

} // namespace

int ProcessTree::numericCompare(QStringView a, QStringView b)
{
    qsizetype i = 0;
    qsizetype j = 0;
    while (i < a.size() && j < b.size()) {
        if (a[i].isDigit() && b[j].isDigit()) {
            qsizetype endA = i;
            qsizetype endB = j;
            while (endA < a.size() && a[endA].isDigit())
                ++endA;
            while (endB < b.size() && b[endB].isDigit())
                ++endB;
            qsizetype startA = i;
            qsizetype startB = j;
            while (startA + 1 < endA && a[startA] == u'0')
                ++startA;
            while (startB + 1 < endB && b[startB] == u'0')
                ++startB;
            const qsizetype lengthA = endA - startA;
            const qsizetype lengthB = endB - startB;
            if (lengthA != lengthB)
                return lengthA < lengthB ? -1 : 1;
            if (const int c = a.sliced(startA, lengthA).compare(b.sliced(startB, lengthB)))
                return c < 0 ? -1 : 1;
            i = endA;
            j = endB;
            continue;
        }
        if (a[i] != b[j])
            return a[i] < b[j] ? -1 : 1;
        ++i;
        ++j;
    }
    if (i < a.size() || j < b.size())
        return i < a.size() ? 1 : -1;
    const int plain = a.compare(b);
    return plain < 0 ? -1 : (plain > 0 ? 1 : 0);
}

QString ProcessTree::text(const QList<LogEntry> &entries)
{
    // Keyed by views of the entries' own bytes.
    std::unordered_map<std::string_view, ProcessNode> processes;
    for (qsizetype row = 0; row < entries.size(); ++row) {
        const LogEntry &entry = entries[row];
        const std::string_view pid = fieldView(entry, LogEntry::Pid);
        if (pid.empty() || pid == "---")
            continue;
        ProcessNode &process = processes[pid];
        ++process.quantity;
        process.lastRow = row;
        const std::string_view tid = fieldView(entry, LogEntry::Tid);
        if (tid.empty() || tid == "-")
            continue;
        ++process.threadLines;
        ++process.threads[tid];
    }

    QString out = QStringLiteral("// Format:\n"
                                 "//\t PID \u2500\u252C (log message count) AppName\n"
                                 "//\t      \u2514\u2500 TID (log message count)\n\n");

    std::vector<std::pair<QString, const ProcessNode *>> sorted;
    sorted.reserve(processes.size());
    for (const auto &[pid, node] : processes)
        sorted.emplace_back(fromView(pid), &node);
    std::sort(sorted.begin(), sorted.end(), [](const auto &l, const auto &r) { return lessNumeric(l.first, r.first); });

    for (const auto &[pid, node] : sorted) {
        const QString app = entries[node->lastRow].value(LogEntry::App);
        out += QStringLiteral("\n%1 \u2500\u252C (%2) %3 (process)\n")
                   .arg(pid.left(7).leftJustified(7, u' '), QString::number(node->quantity), app);
        if (node->threads.empty())
            continue;
        // The thread map also holds its own "quantity" and "tids" entries. They take part in the sort and
        // the last two keys are dropped, which leaves them out as long as thread ids sort before them.
        std::vector<std::pair<QString, qint64>> keys{{QStringLiteral("quantity"), node->threadLines},
                                                     {QStringLiteral("tids"), 0}};
        for (const auto &[tid, quantity] : node->threads) {
            QString key = fromView(tid);
            if (key != u"quantity" && key != u"tids")
                keys.emplace_back(std::move(key), quantity);
        }
        std::sort(keys.begin(), keys.end(), [](const auto &l, const auto &r) { return lessNumeric(l.first, r.first); });
        const size_t printed = keys.size() - 2;
        for (size_t k = 0; k < printed; ++k) {
            out += QStringLiteral("         %1 %2 (%3)\n")
                       .arg(k + 1 == printed ? QStringLiteral("\u2514\u2500") : QStringLiteral("\u251C\u2500"),
                            keys[k].first, QString::number(keys[k].second));
        }
    }
    return out;
}
