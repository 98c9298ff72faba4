// SPDX-License-Identifier: MIT
#include "Helpers/TextHelpers.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QList>

using namespace qf;

TEST(TextHelpers, IsIntegerFollowsTheLeadingIntegerValue)
{
    // The value stops at the first non-digit and saturates on overflow; 0 counts only as exactly "0".
    for (const char16_t *yes : {u"0", u"12", u"-7", u"+7", u"007", u"  42", u"12abc", u"99999999999999999999999"})
        EXPECT_TRUE(isInteger(yes)) << QString::fromUtf16(yes).toStdString();
    for (const char16_t *no : {u"00", u"-0", u" 0", u"0 ", u"abc", u"a1", u"", u"-", u"0x10"})
        EXPECT_FALSE(isInteger(no)) << QString::fromUtf16(no).toStdString();
}

TEST(TextHelpers, SearchesTrimAndCharacterAccess)
{
    EXPECT_EQ(indexOfString(u"abcabc", u"BC"), NotFound);
    EXPECT_EQ(indexOfString(u"abcabc", u"BC", true), 1);
    EXPECT_EQ(indexOfString(u"abc", u"", true), NotFound);          // an empty needle never occurs
    EXPECT_FALSE(contains(u"a DAEMON STARTED", u"daemon started")); // ignoring case: UtilsTest's daemon replies

    // Blanks and tabs only: line ends and the no-break space stay.
    EXPECT_EQ(trim(QStringLiteral(" \t a b \t ")), QStringLiteral("a b"));
    EXPECT_EQ(trim(QStringLiteral("\nabc \r")), QStringLiteral("\nabc \r"));
    EXPECT_TRUE(trim(QStringLiteral("  ")).isEmpty());
    EXPECT_EQ(trim(QStringView(u" \u00a0x ")), QStringView(u"\u00a0x"));
    const QString trimmed = QStringLiteral("already trimmed").repeated(2);
    EXPECT_EQ(trim(trimmed).constData(), trimmed.constData()) << "nothing removed: the storage is shared";

    EXPECT_EQ(safeCharacterAtIndex(u"ab", 1), QChar(u'b'));
    EXPECT_EQ(safeCharacterAtIndex(u"ab", 2), QChar(0));
    EXPECT_EQ(safeCharacterAtIndex(u"ab", -1), QChar(0));
}

TEST(TextHelpers, RemoveSubstringBetween)
{
    // The text, the markers, the result, and the text removed (null: the output place is cleared).
    const std::tuple<QString, QString, QString, std::optional<QString>, QString> cases[] = {
        {"x[ab]y", "[", "]", "x", "ab"}, // a single trailing character is dropped
        {"ab**x**cd", "**", "**", "abcd", "x"},
        {"[ab]", "[", "]", "", "ab"}, // empty, yet present
        {"x[]yz", "[", "]", "xyz", ""},
        {"a[b]c[d]ef", "[", "]", "ac[d]ef", "b"}, // the first start and the next end
        // Fewer than two characters after the start: absent, even when the end marker is there.
        {"x[]", "[", "]", std::nullopt, QString()},
        {"ab**x", "**", "**", std::nullopt, QString()},
        // A marker missing: unchanged.
        {"no markers", "[", "]", "no markers", QString()},
        {"x[abc", "[", "]", "x[abc", QString()},
        {"a]b[cd", "[", "]", "a]b[cd", QString()},   // the end is searched only after the start
        {"ab**xy", "**", "**", "ab**xy", QString()}, // the start's own characters are not the end
    };
    for (const auto &[text, start, end, result, removed] : cases) {
        QString out = QStringLiteral("stale");
        const std::optional<QString> got = removeSubstringBetween(text, start, end, &out);
        EXPECT_EQ(std::tuple(got, out, out.isNull()), std::tuple(result, removed, removed.isNull()))
            << text.toStdString();
    }
    EXPECT_EQ(removeSubstringBetween(QStringLiteral("x[ab]yz"), u"[", u"]"), QStringLiteral("xyz")); // no output place
}

TEST(TextHelpers, IsValidUtf8AgreesWithQtAtEveryPositionOfTheFirstNonAsciiByte)
{
    // The ASCII lane hands over at a word boundary or byte by byte: a bad or good multi-byte
    // character must be judged the same wherever it starts, including inside the last partial word.
    const QList<QByteArray> tails{"\xc3\xa9", "\xe6\x9d\xb1", "\xf0\x9f\x98\x80", "\xff", "\xc3",
                                  "\xe2\x82", "\xed\xa0\x80", "\xc0\xaf",         "\x80"};
    for (const QByteArray &tail : tails) {
        for (int prefix = 0; prefix < 20; ++prefix) {
            for (int suffix : {0, 1, 9}) {
                const QByteArray bytes = QByteArray(prefix, 'a') + tail + QByteArray(suffix, 'z');
                EXPECT_EQ(qf::isValidUtf8(bytes), QByteArrayView(bytes).isValidUtf8()) << bytes.toHex().constData();
            }
        }
    }
    EXPECT_TRUE(qf::isValidUtf8(QByteArrayView()));
    EXPECT_TRUE(qf::isValidUtf8("plain ascii line of some length\n"));
}
