// SPDX-License-Identifier: MIT
#include "Helpers/Extensions.h"

#include <QPoint>
#include <QUrl>

#include <gtest/gtest.h>

using namespace qf;

TEST(Extensions, EachKindOfValueHasItsOneLineForm)
{
    const std::pair<QVariant, QString> cases[] = {
        {QVariant(), "nil"},
        {QVariant::fromValue(nullptr), "nil"},
        {QString(), ""}, // an empty text is a value, not nil
        {QVariantMap(), ""},
        {QVariantMap{{"b", QStringList{"x", "y"}}, {"a", 1}}, "{a=1, b={x, y}}"}, // key order, nested sequences
        {QVariantHash{{"k", QVariant()}}, "{k=nil}"},
        {QVariant::fromValue(QMap<QString, int>{{"n", 2}}), "{n=2}"}, // any associative container
        {QVariantList(), "{}"},                                       // unlike the empty map
        {QVariantList{1, "two", QVariantList{3, QVariant()}, QVariantMap()}, "{1, two, {3, nil}, }"},
        {QVariant::fromValue(QList<int>{4, 5}), "{4, 5}"},
        {QStringLiteral("abc"), "abc"}, // text is not a sequence of characters
        {QByteArray("bytes"), "bytes"},
        {QUrl("https://example.com/a/b/file.txt?q=1"), "URL:file.txt"},
        {QUrl::fromLocalFile("/tmp/logs/"), "URL:logs"},
        {QUrl("https://example.com/"), "URL:/"},
        {QUrl("https://example.com"), "URL:"},
        {42, "42"},                    // whatever converts to text
        {QPoint(1, 2), "QPoint(1,2)"}, // no text conversion: the debug form
    };
    for (const auto &[value, expected] : cases)
        EXPECT_EQ(toString(value), expected) << value.typeName() << " " << expected.toStdString();
}
