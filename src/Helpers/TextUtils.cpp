// SPDX-License-Identifier: MIT
#include "Helpers/TextUtils.h"

#include <algorithm>

namespace TextUtils {

namespace {

constexpr char16_t LineFeed = u'\n';

// The printers' output: units written through a raw pointer into a buffer that doubles when full,
// since QString::append per unit costs several times the rest of the loop.
class Output
{
public:
    Output(QString &target, qsizetype expected) : m_text(target), m_size(target.size())
    {
        m_text.resize(m_size + expected + 64);
        m_data = reinterpret_cast<char16_t *>(m_text.data());
    }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;

    // Cuts the buffer to what was written; nothing may be put afterwards.
    void finish() { m_text.truncate(m_size); }

    void put(char16_t c)
    {
        if (m_size == m_text.size())
            grow(1);
        m_data[m_size++] = c;
    }
    void put(QStringView s)
    {
        if (m_size + s.size() > m_text.size())
            grow(s.size());
        std::copy(s.utf16(), s.utf16() + s.size(), m_data + m_size);
        m_size += s.size();
    }
    void addTabs(qsizetype count)
    {
        for (qsizetype i = 0; i < count; ++i)
            put(Tab);
    }
    void trimEnd()
    {
        while (m_size > 0 && (m_data[m_size - 1] == u'\n' || m_data[m_size - 1] == u' '))
            --m_size;
    }

private:
    void grow(qsizetype atLeast)
    {
        m_text.resize(qMax(m_text.size() * 2, m_size + atLeast + 64));
        m_data = reinterpret_cast<char16_t *>(m_text.data());
    }

    QString &m_text;
    qsizetype m_size;
    char16_t *m_data;
};

} // namespace

QString lenientJsonPrettyPrinter(const QString &text)
{
    QString result;
    Output out(result, text.size() + text.size() / 2);
    qsizetype depth = 0;
    bool inString = false;
    char16_t prev = 0;
    for (const QChar ch : text) {
        const char16_t c = ch.unicode();
        const bool candidate = (c == u'"' && depth > 0) ? !inString : inString;
        if (prev != u'\\')
            inString = candidate;
        if (inString || (depth <= 0 && c != u'{' && c != u'[')) {
            out.put(c);
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
            out.put(LineFeed);
            out.addTabs(depth);
            out.put(c);
            out.put(LineFeed);
            ++depth;
            out.addTabs(depth);
            break;
        case u']':
        case u'}':
            out.trimEnd();
            out.put(LineFeed);
            out.addTabs(depth - 1);
            out.put(c);
            --depth;
            // Every "]" takes a line feed after it; a "}" only when it closes an inner object.
            if (c == u']' || depth >= 1) {
                out.put(LineFeed);
                out.addTabs(depth);
            }
            break;
        case u',':
            out.trimEnd();
            out.put(u',');
            out.put(LineFeed);
            out.addTabs(depth);
            break;
        case u':':
            // Only right after the key's closing quote: with a blank in between the colon stays bare.
            if (prev == u'"')
                out.put(u" : ");
            else
                out.put(c);
            break;
        default:
            out.put(c);
            break;
        }
        prev = c;
    }
    out.finish();
    return result;
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
    Output out(result, length + length / 2);
    qsizetype tabs = tabCount;
    bool inClosingTag = false;
    for (; i < length; ++i) {
        const char16_t c = text[i].unicode();
        if (i + 1 < length) {
            const char16_t n = text[i + 1].unicode();
            // "??", not "?>": a doubled question mark anywhere starts over at the left margin.
            if ((c == u'<' && n == u'?') || (c == u'?' && n == u'?')) {
                out.put(LineFeed);
                out.put(c);
                tabs = 0;
                continue;
            }
            if (c == u'<' && n == u'!') {
                out.put(LineFeed);
                out.addTabs(tabs);
                out.put(c);
                continue;
            }
            if (c == u'<' && n == u'/') {
                // A closing tag after text stays on the text's line; after another closing tag it does not.
                if (inClosingTag) {
                    out.put(LineFeed);
                    out.addTabs(tabs);
                }
                out.put(c);
                inClosingTag = true;
                continue;
            }
        }
        if (c == u'<') {
            ++tabs;
            inClosingTag = false;
            out.put(LineFeed);
            out.addTabs(tabs);
            out.put(c);
            continue;
        }
        out.put(c);
        if (c == u'>' && inClosingTag)
            --tabs;
    }
    out.finish();
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
