// SPDX-License-Identifier: MIT
#include "Helpers/TextHelpers.h"

#include <QLocale>

#include <cstring>

namespace qf {

bool isInteger(QStringView text)
{
    if (text == u"0")
        return true;
    qsizetype i = 0;
    const qsizetype n = text.size();
    while (i < n && text[i].isSpace())
        ++i;
    if (i < n && (text[i] == u'+' || text[i] == u'-'))
        ++i;
    // The integer value is non-zero exactly when one of its leading digits is; an overflowing
    // value saturates and so stays non-zero.
    for (; i < n; ++i) {
        const char16_t c = text[i].unicode();
        if (c < u'0' || c > u'9')
            return false;
        if (c != u'0')
            return true;
    }
    return false;
}

qsizetype indexOfString(QStringView text, QStringView needle)
{
    return indexOfString(text, needle, false);
}

qsizetype indexOfString(QStringView text, QStringView needle, bool ignoreCase)
{
    if (needle.isEmpty())
        return NotFound;
    return text.indexOf(needle, 0, ignoreCase ? Qt::CaseInsensitive : Qt::CaseSensitive);
}

bool contains(QStringView text, QStringView needle)
{
    return indexOfString(text, needle, false) != NotFound;
}

bool contains(QStringView text, QStringView needle, bool ignoreCase)
{
    return indexOfString(text, needle, ignoreCase) != NotFound;
}

namespace {
constexpr bool isBlank(QChar c)
{
    return c == u' ' || c == u'\t';
}
} // namespace

QStringView trim(QStringView text)
{
    qsizetype begin = 0;
    qsizetype end = text.size();
    while (begin < end && isBlank(text[begin]))
        ++begin;
    while (end > begin && isBlank(text[end - 1]))
        --end;
    return text.sliced(begin, end - begin);
}

QString trim(const QString &text)
{
    const QStringView view = trim(QStringView(text));
    if (view.size() == text.size())
        return text;
    return view.toString();
}

QChar safeCharacterAtIndex(QStringView text, qsizetype index)
{
    if (index < 0 || index >= text.size())
        return QChar(0);
    return text[index];
}

std::optional<QString> removeSubstringBetween(const QString &text, QStringView start, QStringView end, QString *out)
{
    if (out)
        *out = QString();
    const qsizetype startAt = indexOfString(text, start);
    if (startAt == NotFound)
        return text;
    const qsizetype innerBegin = startAt + start.size();
    if (text.size() - innerBegin < 2)
        return std::nullopt;
    const QStringView rest = QStringView(text).sliced(innerBegin);
    const qsizetype endInRest = indexOfString(rest, end);
    if (endInRest == NotFound)
        return text;
    if (out)
        *out = rest.first(endInRest).toString();
    const qsizetype tailBegin = innerBegin + endInRest + end.size();
    if (tailBegin < text.size() - 1) {
        QString result;
        result.reserve(startAt + text.size() - tailBegin);
        result.append(QStringView(text).first(startAt));
        result.append(QStringView(text).sliced(tailBegin));
        return result;
    }
    return text.first(startAt);
}

} // namespace qf

bool qf::isValidUtf8(QByteArrayView bytes)
{
    const char *p = bytes.data();
    const char *end = p + bytes.size();
    constexpr quint64 high = 0x8080808080808080ULL;
    while (end - p >= 8) {
        quint64 word;
        std::memcpy(&word, p, 8);
        if (word & high)
            break;
        p += 8;
    }
    while (p < end && uchar(*p) < 0x80)
        ++p;
    // Everything before p is ASCII, so p starts a character.
    return p == end || QByteArrayView(p, end - p).isValidUtf8();
}

QString qf::groupedCount(qint64 count)
{
    QLocale locale;
    if (locale.language() == QLocale::C)
        locale = QLocale(QLocale::English, QLocale::UnitedStates);
    locale.setNumberOptions(locale.numberOptions() & ~QLocale::OmitGroupSeparator);
    return locale.toString(count);
}
