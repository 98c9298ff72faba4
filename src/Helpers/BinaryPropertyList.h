// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArrayView>
#include <QList>
#include <QString>

#include <optional>

// Reads a binary property list ("bplist00": objects, a table of their offsets and a 32-byte trailer)
// one object at a time, on demand. Nothing is followed recursively and every count, reference and
// offset is checked against the file, so a hostile file is refused instead of exhausting the stack
// or memory. Objects are named by their reference (an index into the offset table).
class BinaryPropertyList
{
public:
    explicit BinaryPropertyList(QByteArrayView data) : m_data(data) {}

    // Checks the header and trailer; false, with *why set, when the file is not a usable list.
    bool open(QString *why);
    quint64 top() const { return m_top; }

    // The dictionary `ref`: its key and value references, in file order. False when it is not one.
    bool dictionary(quint64 ref, QList<quint64> *keys, QList<quint64> *values) const;
    // The string `ref` (ASCII, UTF-16 big endian or UTF-8), or nothing when it is not one.
    std::optional<QString> string(quint64 ref) const;
    // The number of elements of the array `ref`, or nothing when it is not one.
    std::optional<quint64> arraySize(quint64 ref) const;

private:
    std::optional<quint64> offsetOf(quint64 ref) const;
    uchar byte(quint64 pos) const { return uchar(m_data[qsizetype(pos)]); }
    quint64 number(quint64 pos, int size) const;
    // A count in the marker's low nibble, or (0xF) in an integer object after it; moves *pos past it.
    std::optional<quint64> lengthAfter(uchar marker, quint64 *pos) const;

    QByteArrayView m_data;
    int m_offsetSize = 0;
    int m_refSize = 0;
    quint64 m_objects = 0;
    quint64 m_top = 0;
    quint64 m_table = 0; // where the offset table starts: the end of the object area
};
