// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariant>

// One-line descriptions of arbitrary values for diagnostic lines.
namespace qf {

// Tested in this order:
//   no value (invalid QVariant or nullptr)          -> "nil"
//   a map (QVariantMap, QVariantHash, any associative container) -> dictionaryToDelimitedString
//   a sequence (QVariantList, QStringList, any sequential container but text) -> arrayToDelimitedString
//   QUrl                                            -> "URL:" + the last path component
//   anything else                                   -> the value's own text (QVariant::toString, or its
//                                                      debug form when it has no text conversion)
QString toString(const QVariant &value);

// "" when empty, else "{k1=v1, k2=v2}" in the map's key order, values through toString.
QString dictionaryToDelimitedString(const QVariantMap &map);
QString dictionaryToDelimitedString(const QVariantHash &hash);
// "{a, b}" with the elements through toString; "{}" when empty (unlike the empty map).
QString arrayToDelimitedString(const QVariantList &list);

} // namespace qf
