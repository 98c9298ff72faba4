// SPDX-License-Identifier: MIT
#include "Filters/AsciiNeedle.h"

AsciiNeedle::AsciiNeedle(const QByteArray &needle, bool ignoreCase) : m_needle(needle)
{
    for (int b = 0; b < 256; ++b)
        m_fold[size_t(b)] = uint8_t(ignoreCase && b >= 'A' && b <= 'Z' ? b + ('a' - 'A') : b);
    const auto m = uint32_t(m_needle.size());
    m_skip.fill(m);
    for (uint32_t i = 0; i + 1 < m; ++i)
        m_skip[uchar(m_needle[i])] = m - 1 - i;
    if (ignoreCase) {
        // An upper-case byte shifts as its lower case: the table is indexed by folded bytes only.
        for (int b = 'A'; b <= 'Z'; ++b)
            m_skip[size_t(b)] = m_skip[size_t(b + ('a' - 'A'))];
    }
}

bool AsciiNeedle::foundIn(QByteArrayView haystack) const
{
    const auto *hay = reinterpret_cast<const uchar *>(haystack.data());
    const auto *needle = reinterpret_cast<const uchar *>(m_needle.constData());
    const size_t n = size_t(haystack.size()), m = size_t(m_needle.size());
    if (m == 0 || m > n)
        return false;
    const uchar last = needle[m - 1];
    for (size_t i = 0; i <= n - m;) {
        const uchar tail = hay[i + m - 1];
        if (m_fold[tail] == last) {
            size_t j = 0;
            while (j + 1 < m && m_fold[hay[i + j]] == needle[j])
                ++j;
            if (j + 1 == m)
                return true;
        }
        i += m_skip[tail];
    }
    return false;
}
