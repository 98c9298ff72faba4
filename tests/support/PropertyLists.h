// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <plist/plist.h>

#include <cstdlib>
#include <utility>

// Property lists as libplist writes them, XML or binary: what other tools and older exports hold.

// Takes `value` and frees it.
inline QByteArray plistBytes(plist_t value, bool binary)
{
    char *out = nullptr;
    uint32_t length = 0;
    if (binary)
        plist_to_bin(value, &out, &length);
    else
        plist_to_xml(value, &out, &length);
    QByteArray bytes(out, qsizetype(length));
    std::free(out);
    plist_free(value);
    return bytes;
}

// A dictionary of strings, in the given order.
template <typename Pairs> QByteArray stringDictionary(const Pairs &pairs, bool binary)
{
    plist_t dict = plist_new_dict();
    for (auto it = std::begin(pairs); it != std::end(pairs); ++it) {
        const auto &[name, text] = *it;
        plist_dict_set_item(dict, QString(name).toUtf8().constData(), plist_new_string(QString(text).toUtf8().constData()));
    }
    return plistBytes(dict, binary);
}
