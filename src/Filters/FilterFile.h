// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArrayView>
#include <QList>
#include <QString>

#include <optional>

// Reads a filter export file: a property list, XML or binary, whose root dictionary maps names to
// filter texts. Nothing else is accepted. The reading is iterative and checks every offset and
// count, so a hostile file (nested 50,000 deep, references out of range or in a loop, counts larger
// than the file) is refused with a reason instead of exhausting the stack or memory.
class FilterFile
{
public:
    struct Entry
    {
        QString name;
        QString text;
    };

    // The entries in file order; nothing, with *error set, when the file is not such a dictionary.
    static std::optional<QList<Entry>> read(QByteArrayView data, QString *error = nullptr);

private:
    static std::optional<QList<Entry>> readXml(QByteArrayView data, QString *error);
    static std::optional<QList<Entry>> readBinary(QByteArrayView data, QString *error);
};
