// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <array>
#include <cstdint>

// A substring search for an ASCII needle in UTF-8 bytes, optionally ignoring ASCII case
// (Boyer-Moore-Horspool over case-folded bytes, tables built once). An ASCII needle occurs in UTF-8
// text exactly where its bytes do, since multi-byte sequences hold no ASCII bytes.
// Immutable after construction: any number of threads may search with one needle.
class AsciiNeedle
{
public:
    // `needle`: non-empty ASCII; with `ignoreCase`, in lower case.
    AsciiNeedle(const QByteArray &needle, bool ignoreCase);

    bool foundIn(QByteArrayView haystack) const;

private:
    QByteArray m_needle;
    std::array<uint8_t, 256> m_fold;  // byte -> the byte compared (lower case when ignoring case)
    std::array<uint32_t, 256> m_skip; // Horspool shift by the folded last byte of the window
};
