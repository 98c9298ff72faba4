// SPDX-License-Identifier: MIT
#include "Presentation/LogSearch.h"

#include <QRegularExpression>
#include <QStringDecoder>

#include <array>
#include <cstring>
#include <thread>
#include <vector>

namespace {

constexpr std::array<LogEntry::Field, 7> SearchedFields = {LogEntry::Time, LogEntry::App,  LogEntry::Pid, LogEntry::Tid,
                                                           LogEntry::Name, LogEntry::Text, LogEntry::Note};
// About 100 KiB of text per block: big enough to make one match call cheap per row, small enough that
// a block with a match costs little to try row by row.
constexpr int BlockRows = 1024;

// Constructs that could find nothing in a joined block although a single value has a match.
bool joinedMayMiss(const QString &pattern)
{
    static const char *const risky[] = {"\\A", "\\z", "\\Z", "\\G", "(?!", "(?<!"};
    for (const char *construct : risky) {
        if (pattern.contains(QLatin1String(construct)))
            return true;
    }
    return false;
}

// A text without any special character of the expression syntax matches exactly where its UTF-8 bytes
// occur in a value's UTF-8 bytes, so it is searched without decoding (the common case: a typed word).
QByteArray literalUtf8(const QString &pattern)
{
    for (const QChar c : pattern) {
        if (QStringView(u"\\^$.|?*+()[]{}").contains(c) || c == QChar::ReplacementCharacter)
            return {};
    }
    return pattern.toUtf8();
}

class Matcher
{
public:
    explicit Matcher(const QString &text)
        : m_exact(text)
        , m_joined(text, QRegularExpression::MultilineOption)
        , m_blocks(!joinedMayMiss(text))
        , m_literal(literalUtf8(text))
        , m_decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless)
    {
    }

    bool isValid() const { return m_exact.isValid(); }

    std::optional<LogEntry::Field> matchRow(const LogEntry &entry) const
    {
        if (!m_literal.isEmpty())
            return matchLiteral(entry);
        for (const LogEntry::Field field : SearchedFields) {
            if (m_exact.match(entry.value(field)).hasMatch())
                return field;
        }
        return std::nullopt;
    }

    // False only when no row in [first, last] can match.
    bool blockMayMatch(const QList<LogEntry> &rows, int first, int last)
    {
        if (!m_literal.isEmpty()) {
            for (int row = first; row <= last; ++row) {
                if (matchLiteral(rows[row]))
                    return true;
            }
            return false;
        }
        if (!m_blocks)
            return true;
        // One pass: a worker may name an entry ("app") between two looks at it, so nothing is sized ahead.
        qsizetype used = 0;
        auto reserve = [this, &used](qsizetype more) {
            if (used + more > m_buffer.size())
                m_buffer.resize(std::max(used + more, 2 * m_buffer.size()));
            return m_buffer.data() + used;
        };
        for (int row = first; row <= last; ++row) {
            for (const LogEntry::Field field : SearchedFields) {
                QByteArrayView view;
                QChar *out;
                if (rows[row].storedUtf8(field, &view)) {
                    // UTF-8 never takes fewer bytes than UTF-16 takes code units.
                    out = m_decoder.appendToBuffer(reserve(view.size() + 1), view);
                } else {
                    const QString value = rows[row].value(field);
                    out = std::copy(value.cbegin(), value.cend(), reserve(value.size() + 1));
                }
                *out++ = u'\n';
                used = out - m_buffer.constData();
            }
        }
        m_buffer.truncate(used);
        return m_joined.match(m_buffer).hasMatch();
    }

private:
    std::optional<LogEntry::Field> matchLiteral(const LogEntry &entry) const
    {
        for (const LogEntry::Field field : SearchedFields) {
            QByteArrayView view;
            QByteArray written; // a value set after the entry was made ("app", "note")
            if (!entry.storedUtf8(field, &view)) {
                written = entry.utf8Value(field);
                view = written;
            }
            if (memmem(view.data(), size_t(view.size()), m_literal.constData(), size_t(m_literal.size())))
                return field;
        }
        return std::nullopt;
    }

    QRegularExpression m_exact;
    QRegularExpression m_joined;
    bool m_blocks;
    QByteArray m_literal; // empty: a regular expression proper
    QStringDecoder m_decoder;
    QString m_buffer;
};

struct Hit
{
    int row = -1;
    LogEntry::Field field = LogEntry::Idx;
};

// Tries rows lo..hi (ascending, or descending when `backwards`). Blocks are screened in batches that
// grow from 2 to 32 blocks, half of each batch on a second thread with its own matcher: a match near the
// start costs little, a search that finds nothing uses both cores.
Hit searchRange(Matcher &matcher, Matcher &helper, const QList<LogEntry> &rows, int lo, int hi, bool backwards)
{
    if (lo > hi)
        return {};
    std::vector<std::pair<int, int>> blocks; // first, last; in the order they are tried
    if (!backwards) {
        for (int first = lo; first <= hi; first += BlockRows)
            blocks.emplace_back(first, std::min(hi, first + BlockRows - 1));
    } else {
        for (int last = hi; last >= lo; last -= BlockRows)
            blocks.emplace_back(std::max(lo, last - BlockRows + 1), last);
    }
    std::vector<char> mayMatch;
    size_t batch = 2;
    for (size_t begin = 0; begin < blocks.size(); begin += batch, batch = std::min<size_t>(batch * 2, 32)) {
        const size_t end = std::min(blocks.size(), begin + batch);
        mayMatch.assign(end - begin, 0);
        auto screen = [&](Matcher &m, size_t parity) {
            for (size_t i = begin + parity; i < end; i += 2)
                mayMatch[i - begin] = m.blockMayMatch(rows, blocks[i].first, blocks[i].second);
        };
        if (end - begin > 1) {
            std::thread second([&] { screen(helper, 1); });
            screen(matcher, 0);
            second.join();
        } else {
            screen(matcher, 0);
        }
        for (size_t i = begin; i < end; ++i) {
            if (!mayMatch[i - begin])
                continue;
            const auto [first, last] = blocks[i];
            for (int k = 0; k <= last - first; ++k) {
                const int row = backwards ? last - k : first + k;
                if (const auto field = matcher.matchRow(rows[row]))
                    return {row, *field};
            }
        }
    }
    return {};
}

} // namespace

int LogSearch::checkSearchIndex(int index, int rowCount, bool *wrapped)
{
    int checked = index;
    if (index >= rowCount)
        checked = 0;
    else if (index < 0)
        checked = rowCount - 1;
    if (wrapped)
        *wrapped = checked != index;
    return checked;
}

LogSearch::Result LogSearch::find(const QList<LogEntry> &rows, const QString &text, std::optional<int> selectedRow,
                                  int direction)
{
    Result result;
    const int count = int(rows.size());
    if (count == 0 || text.isEmpty())
        return result;

    int start = count - 1;
    if (selectedRow && *selectedRow >= 0 && *selectedRow < count)
        start = *selectedRow + (direction > 0 ? 1 : direction < 0 ? -1 : 0);
    else
        direction = -1;
    bool wrapped = false;
    start = checkSearchIndex(start, count, &wrapped);
    const int beep = direction != 0 ? 1 : 0;
    result.beeps += wrapped ? beep : 0;
    result.startIndex = start;
    result.direction = direction;

    Matcher matcher(text);
    Matcher helper(text);
    if (matcher.isValid()) {
        // Up to the end from the start, then, after one wrap, from the other end back to the start.
        const bool backwards = direction < 0;
        Hit hit = backwards ? searchRange(matcher, helper, rows, 0, start, true) : searchRange(matcher, helper, rows, start, count - 1, false);
        int wraps = 0;
        if (hit.row < 0) {
            wraps = 1;
            hit = backwards ? searchRange(matcher, helper, rows, start + 1, count - 1, true)
                            : searchRange(matcher, helper, rows, 0, start - 1, false);
        }
        if (hit.row >= 0) {
            result.beeps += wraps * beep;
            result.row = hit.row;
            result.field = hit.field;
            return result;
        }
    }
    // Every row tried: the scan wrapped once on its way back to the start, then the no-match beep.
    result.beeps += 2 * beep;
    return result;
}
