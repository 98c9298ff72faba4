// SPDX-License-Identifier: MIT
#include "Helpers/TextUtils.h"

namespace TextUtils {

namespace {

constexpr char16_t LineFeed = u'\n';

// Room for the input and a little indentation; the output grows from there as needed.
QString outputFor(const QString &text)
{
    QString out;
    out.reserve(text.size() + text.size() / 2 + 16);
    return out;
}

} // namespace

QString lenientJsonPrettyPrinter(const QString &text)
{
    QString out = outputFor(text);
    qsizetype depth = 0;
    bool inString = false;
    char16_t prev = 0;
    for (const QChar ch : text) {
        const char16_t c = ch.unicode();
        const bool candidate = (c == u'"' && depth > 0) ? !inString : inString;
        if (prev != u'\\')
            inString = candidate;
        if (inString || (depth <= 0 && c != u'{' && c != u'[')) {
            out.append(ch);
            prev = c;
            continue;
        }
        switch (c) {
        case u'\t':
        case u'\n':
        case u'\r':
        case u' ':
            break; // depth > 0 here, so whitespace between tokens always goes
        case u'{':
        case u'[':
            out.append(LineFeed);
            addTabs(depth, out);
            out.append(ch);
            out.append(LineFeed);
            ++depth;
            addTabs(depth, out);
            break;
        case u']':
            trimEnd(out);
            out.append(LineFeed);
            addTabs(depth - 1, out);
            out.append(ch);
            out.append(LineFeed);
            --depth;
            addTabs(depth, out);
            break;
        case u'}':
            trimEnd(out);
            out.append(LineFeed);
            addTabs(depth - 1, out);
            out.append(ch);
            if (depth >= 2) {
                out.append(LineFeed);
                addTabs(depth - 1, out);
            }
            --depth;
            break;
        case u',':
            trimEnd(out);
            out.append(u',');
            out.append(LineFeed);
            addTabs(depth, out);
            break;
        case u':':
            // Only right after the key's closing quote: with a blank in between the colon stays bare.
            if (prev == u'"')
                out.append(u" : ");
            else
                out.append(ch);
            break;
        default:
            out.append(ch);
            break;
        }
        prev = c;
    }
    return out;
}

QString lenientXMLPrettyPrinter(const QString &text)
{
    QString result;
    return xmlPrettyPrinter(text, 0, 0, result);
}

QString &xmlPrettyPrinter(const QString &text, qsizetype index, qsizetype tabCount, QString &result)
{
    const qsizetype length = text.size();
    qsizetype i = qMax<qsizetype>(index, 0);
    if (length - 1 <= i)
        return result;
    result.reserve(result.size() + length + length / 2 + 16);
    qsizetype tabs = tabCount;
    bool inClosingTag = false;
    for (; i < length; ++i) {
        const char16_t c = text[i].unicode();
        if (i + 1 < length) {
            const char16_t n = text[i + 1].unicode();
            // "??", not "?>": a doubled question mark anywhere starts over at the left margin.
            if ((c == u'<' && n == u'?') || (c == u'?' && n == u'?')) {
                result.append(LineFeed);
                result.append(QChar(c));
                tabs = 0;
                continue;
            }
            if (c == u'<' && n == u'!') {
                result.append(LineFeed);
                addTabs(tabs, result);
                result.append(QChar(c));
                continue;
            }
            if (c == u'<' && n == u'/') {
                // A closing tag after text stays on the text's line; after another closing tag it does not.
                if (inClosingTag) {
                    result.append(LineFeed);
                    addTabs(tabs, result);
                }
                result.append(QChar(c));
                inClosingTag = true;
                continue;
            }
        }
        if (c == u'<') {
            ++tabs;
            inClosingTag = false;
            result.append(LineFeed);
            addTabs(tabs, result);
            result.append(QChar(c));
            continue;
        }
        result.append(QChar(c));
        if (c == u'>' && inClosingTag)
            --tabs;
    }
    return result;
}

void trimEnd(QString &text)
{
    qsizetype end = text.size();
    while (end > 0 && (std::as_const(text)[end - 1] == u'\n' || std::as_const(text)[end - 1] == u' '))
        --end;
    text.truncate(end);
}

void addTabs(qsizetype count, QString &text)
{
    for (qsizetype i = 0; i < count; ++i)
        text.append(Tab);
}

QString truncate(const QString &text, qsizetype length)
{
    if (text.size() > length)
        return text.left(qMax<qsizetype>(length, 0)) + QStringLiteral("...");
    return text;
}

} // namespace TextUtils
