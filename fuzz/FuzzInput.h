// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArrayView>
#include <QString>

#include <cstddef>
#include <cstdint>

// What every target does before its first input: no console noise from the diagnostic log.
void fuzzSetUp();

inline QByteArrayView fuzzBytes(const uint8_t *data, size_t size)
{
    return QByteArrayView(reinterpret_cast<const char *>(data), qsizetype(size));
}

// Text targets see arbitrary bytes as UTF-8, bad sequences as U+FFFD, as text from a file would be.
inline QString fuzzText(const uint8_t *data, size_t size)
{
    return QString::fromUtf8(fuzzBytes(data, size));
}
