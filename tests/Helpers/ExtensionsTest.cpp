// SPDX-License-Identifier: MIT
#include "Helpers/Extensions.h"

#include <QDateTime>
#include <QPoint>
#include <QUrl>

#include <gtest/gtest.h>

using namespace qf;

TEST(Extensions, NoValueIsNil)
{
    EXPECT_EQ(toString(QVariant()), QStringLiteral("nil"));
    EXPECT_EQ(toString(QVariant::fromValue(nullptr)), QStringLiteral("nil"));
    // An empty text is a value, not nil.
    EXPECT_EQ(toString(QString()), QString());
}

TEST(Extensions, MapsAndEmptyMaps)
{
    EXPECT_EQ(toString(QVariantMap()), QString());
    EXPECT_EQ(toString(QVariantHash()), QString());
    QVariantMap map;
    map.insert(QStringLiteral("b"), QStringList{QStringLiteral("x"), QStringLiteral("y")});
    map.insert(QStringLiteral("a"), 1);
    EXPECT_EQ(toString(map), QStringLiteral("{a=1, b={x, y}}"));
    EXPECT_EQ(dictionaryToDelimitedString(map), QStringLiteral("{a=1, b={x, y}}"));
    QVariantHash hash;
    hash.insert(QStringLiteral("k"), QVariant());
    EXPECT_EQ(toString(hash), QStringLiteral("{k=nil}"));
    // Any associative container counts as a map.
    const QMap<QString, int> typed{{QStringLiteral("n"), 2}};
    EXPECT_EQ(toString(QVariant::fromValue(typed)), QStringLiteral("{n=2}"));
}

TEST(Extensions, SequencesAndEmptySequences)
{
    EXPECT_EQ(toString(QVariantList()), QStringLiteral("{}"));
    EXPECT_EQ(toString(QStringList()), QStringLiteral("{}"));
    EXPECT_EQ(arrayToDelimitedString({}), QStringLiteral("{}"));
    const QVariantList nested{1, QStringLiteral("two"), QVariantList{3, QVariant()}, QVariantMap()};
    EXPECT_EQ(toString(nested), QStringLiteral("{1, two, {3, nil}, }"));
    EXPECT_EQ(toString(QVariant::fromValue(QList<int>{4, 5})), QStringLiteral("{4, 5}"));
    // Text is not treated as a sequence of characters.
    EXPECT_EQ(toString(QStringLiteral("abc")), QStringLiteral("abc"));
    EXPECT_EQ(toString(QByteArray("bytes")), QStringLiteral("bytes"));
}

TEST(Extensions, UrlsShowTheirLastPathComponent)
{
    EXPECT_EQ(toString(QUrl(QStringLiteral("https://example.com/a/b/file.txt?q=1"))), QStringLiteral("URL:file.txt"));
    EXPECT_EQ(toString(QUrl::fromLocalFile(QStringLiteral("/tmp/logs/"))), QStringLiteral("URL:logs"));
    EXPECT_EQ(toString(QUrl(QStringLiteral("https://example.com/"))), QStringLiteral("URL:/"));
    EXPECT_EQ(toString(QUrl(QStringLiteral("https://example.com"))), QStringLiteral("URL:"));
}

TEST(Extensions, OtherValuesUseTheirOwnText)
{
    EXPECT_EQ(toString(42), QStringLiteral("42"));
    EXPECT_EQ(toString(2.5), QStringLiteral("2.5"));
    EXPECT_EQ(toString(true), QStringLiteral("true"));
    EXPECT_EQ(toString(QDateTime(QDate(2024, 1, 2), QTime(3, 4, 5))), QStringLiteral("2024-01-02T03:04:05.000"));
    // Without a text conversion the debug form is used.
    EXPECT_EQ(toString(QPoint(1, 2)), QStringLiteral("QPoint(1,2)"));
}
