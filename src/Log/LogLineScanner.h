// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArrayView>
#include <QChar>

#include <cstring>

// Reads a UTF-8 log line token by token. Before each read it skips white space (blank, tab, line ends
// and the other Unicode space and line-separator characters), then takes everything up to (not
// including) the next occurrence of a delimiter, leaving the delimiter as the next thing to read.
// It remembers the delimiter of its previous read, also of a failed one: a result that begins with
// that delimiter loses that one occurrence from its front (blanks after it stay). A read fails when it
// takes nothing, or nothing is left after that removal.
//
// Delimiters are ASCII, so a byte search finds exactly the characters a UTF-16 search would, and
// every result is a contiguous slice of the line.
class LogLineScanner
{
public:
    struct Slice
    {
        qsizetype begin = 0;
        qsizetype size = 0;
    };

    explicit LogLineScanner(QByteArrayView utf8Line) : m_line(utf8Line) {}

    bool scanUpTo(QByteArrayView delimiter, Slice *out)
    {
        skipWhitespace();
        const qsizetype start = m_pos;
        qsizetype end = find(delimiter, start);
        if (end < 0)
            end = m_line.size();
        const QByteArrayView previous = m_previous;
        m_previous = delimiter;
        if (end == start)
            return false;
        m_pos = end;
        qsizetype begin = start;
        if (!previous.isEmpty() && end - begin >= previous.size() && startsWith(begin, previous))
            begin += previous.size();
        if (begin == end)
            return false;
        *out = {begin, end - begin};
        return true;
    }

    qsizetype position() const { return m_pos; }
    bool atEnd() const { return m_pos >= m_line.size(); }

    // White space as QChar::isSpace sees it, decoded from UTF-8 (invalid bytes are not space).
    static qsizetype whitespaceLength(QByteArrayView s, qsizetype pos)
    {
        const auto c = uchar(s[pos]);
        if (c < 0x80)
            return (c == ' ' || (c >= '\t' && c <= '\r')) ? 1 : 0;
        char32_t cp = 0;
        qsizetype len = 0;
        if ((c & 0xE0) == 0xC0) {
            cp = c & 0x1F;
            len = 2;
        } else if ((c & 0xF0) == 0xE0) {
            cp = c & 0x0F;
            len = 3;
        } else {
            return 0; // no space character lies outside the first three UTF-8 lengths
        }
        if (pos + len > s.size())
            return 0;
        for (qsizetype i = 1; i < len; ++i) {
            const auto cc = uchar(s[pos + i]);
            if ((cc & 0xC0) != 0x80)
                return 0;
            cp = (cp << 6) | (cc & 0x3F);
        }
        return QChar::isSpace(cp) ? len : 0;
    }

private:
    void skipWhitespace()
    {
        while (m_pos < m_line.size()) {
            const qsizetype n = whitespaceLength(m_line, m_pos);
            if (n == 0)
                break;
            m_pos += n;
        }
    }

    // Delimiters are one or two bytes: compared inline, a call to memcmp cost more than the compare.
    bool startsWith(qsizetype at, QByteArrayView delimiter) const
    {
        const char *p = m_line.data() + at;
        if (delimiter.size() == 1)
            return *p == delimiter[0];
        return std::memcmp(p, delimiter.data(), size_t(delimiter.size())) == 0;
    }

    qsizetype find(QByteArrayView delimiter, qsizetype from) const
    {
        if (from >= m_line.size())
            return -1;
        if (delimiter.size() == 1) {
            const void *hit = std::memchr(m_line.data() + from, delimiter[0], size_t(m_line.size() - from));
            return hit ? static_cast<const char *>(hit) - m_line.data() : -1;
        }
        return m_line.indexOf(delimiter, from);
    }

    QByteArrayView m_line;
    qsizetype m_pos = 0;
    QByteArrayView m_previous;
};
