// SPDX-License-Identifier: MIT
#include "Helpers/Extensions.h"

#include <QDateTime>
#include <QPoint>
#include <QUrl>

#include <gtest/gtest.h>

using namespace qf;

TEST(Extensions, EachKindOfValueHasItsOneLineForm)
{
    QVariantMap map{{"b", QStringList{"x", "y"}}, {"a", 1}};
    const std::pair<QVariant, QString> cases[] = {
        {QVariant(), "nil"},
        {QVariant::fromValue(nullptr), "nil"},
        {QString(), ""}, // an empty text is a value, not nil
        {QVariantMap(), ""},
        {QVariantHash(), ""},
        {map, "{a=1, b={x, y}}"}, // key order, nested sequences
        {QVariantHash{{"k", QVariant()}}, "{k=nil}"},
        {QVariant::fromValue(QMap<QString, int>{{"n", 2}}), "{n=2}"}, // any associative container
        {QVariantList(), "{}"},                                       // unlike the empty map
        {QStringList(), "{}"},
        {QVariantList{1, "two", QVariantList{3, QVariant()}, QVariantMap()}, "{1, two, {3, nil}, }"},
        {QVariant::fromValue(QList<int>{4, 5}), "{4, 5}"},
        {QStringLiteral("abc"), "abc"}, // text is not a sequence of characters
        {QByteArray("bytes"), "bytes"},
        {QUrl("https://example.com/a/b/file.txt?q=1"), "URL:file.txt"},
        {QUrl::fromLocalFile("/tmp/logs/"), "URL:logs"},
        {QUrl("https://example.com/"), "URL:/"},
        {QUrl("https://example.com"), "URL:"},
        {42, "42"},
        {2.5, "2.5"},
        {true, "true"},
        {QDateTime(QDate(2024, 1, 2), QTime(3, 4, 5)), "2024-01-02T03:04:05.000"},
        {QPoint(1, 2), "QPoint(1,2)"}, // no text conversion: the debug form
    };
    for (const auto &[value, expected] : cases)
        EXPECT_EQ(toString(value), expected) << value.typeName() << " " << expected.toStdString();
    EXPECT_EQ(dictionaryToDelimitedString(map), "{a=1, b={x, y}}");
    EXPECT_EQ(arrayToDelimitedString({}), "{}");
}
