// SPDX-License-Identifier: MIT
#include "Helpers/TextHelpers.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QList>

using namespace qf;

TEST(TextHelpers, IsIntegerFollowsTheLeadingIntegerValue)
{
    EXPECT_TRUE(isInteger(u"0"));
    EXPECT_TRUE(isInteger(u"12"));
    EXPECT_TRUE(isInteger(u"-7"));
    EXPECT_TRUE(isInteger(u"+7"));
    EXPECT_TRUE(isInteger(u"007"));
    EXPECT_TRUE(isInteger(u"  42"));
    EXPECT_TRUE(isInteger(u"12abc")); // the integer value stops at the first non-digit
    EXPECT_TRUE(isInteger(u"99999999999999999999999")); // overflow saturates, non-zero
    EXPECT_FALSE(isInteger(u"00"));
    EXPECT_FALSE(isInteger(u"-0"));
    EXPECT_FALSE(isInteger(u" 0")); // value 0 and not exactly "0"
    EXPECT_FALSE(isInteger(u"0 "));
    EXPECT_FALSE(isInteger(u"abc"));
    EXPECT_FALSE(isInteger(u"a1"));
    EXPECT_FALSE(isInteger(u""));
    EXPECT_FALSE(isInteger(u"-"));
    EXPECT_FALSE(isInteger(u"0x10"));
}

TEST(TextHelpers, IndexOfStringFindsFirstOccurrence)
{
    EXPECT_EQ(indexOfString(u"abcabc", u"bc"), 1);
    EXPECT_EQ(indexOfString(u"abcabc", u"abc"), 0);
    EXPECT_EQ(indexOfString(u"abcabc", u"BC"), NotFound);
    EXPECT_EQ(indexOfString(u"abcabc", u"BC", true), 1);
    EXPECT_EQ(indexOfString(u"abcabc", u"BC", false), NotFound);
    EXPECT_EQ(indexOfString(u"ab", u"abc"), NotFound);
    EXPECT_EQ(indexOfString(u"", u"a"), NotFound);
    // An empty needle never occurs.
    EXPECT_EQ(indexOfString(u"abc", u""), NotFound);
    EXPECT_EQ(indexOfString(u"abc", u"", true), NotFound);
}

TEST(TextHelpers, ContainsRespectsCaseOnlyWhenAsked)
{
    const QString out = QStringLiteral("* daemon not running; starting now at tcp:5037\n"
                                       "* DAEMON STARTED SUCCESSFULLY\n");
    EXPECT_FALSE(contains(out, u"daemon started successfully"));
    EXPECT_TRUE(contains(out, u"daemon started successfully", true));
    EXPECT_FALSE(contains(out, u"daemon started successfully", false));
    EXPECT_TRUE(contains(out, u"DAEMON"));
    EXPECT_FALSE(contains(out, u""));
    EXPECT_FALSE(contains(u"", u"x", true));
}

TEST(TextHelpers, TrimRemovesBlanksAndTabsOnly)
{
    EXPECT_EQ(trim(QStringLiteral(" \t a b \t ")), QStringLiteral("a b"));
    EXPECT_EQ(trim(QStringLiteral("abc\n")), QStringLiteral("abc\n"));
    EXPECT_EQ(trim(QStringLiteral("\nabc \r")), QStringLiteral("\nabc \r"));
    EXPECT_EQ(trim(QStringLiteral("  ")), QString());
    EXPECT_TRUE(trim(QStringLiteral("  ")).isEmpty());
    EXPECT_EQ(trim(QStringView(u" \u00a0x ")), QStringView(u"\u00a0x")); // no-break space is kept
}

TEST(TextHelpers, TrimSharesStorageWhenNothingIsRemoved)
{
    const QString text = QStringLiteral("already trimmed").repeated(2);
    const QString trimmed = trim(text);
    EXPECT_EQ(trimmed.constData(), text.constData());
}

TEST(TextHelpers, SafeCharacterAtIndexReturnsZeroOutOfRange)
{
    const QString text = QStringLiteral("ab");
    EXPECT_EQ(safeCharacterAtIndex(text, 0), QChar(u'a'));
    EXPECT_EQ(safeCharacterAtIndex(text, 1), QChar(u'b'));
    EXPECT_EQ(safeCharacterAtIndex(text, 2), QChar(0));
    EXPECT_EQ(safeCharacterAtIndex(text, 100), QChar(0));
    EXPECT_EQ(safeCharacterAtIndex(text, -1), QChar(0));
    EXPECT_EQ(safeCharacterAtIndex(QString(), 0), QChar(0));
    // UTF-16 units, not code points.
    EXPECT_EQ(safeCharacterAtIndex(u"\U0001F600", 1), QChar(u'\xDE00'));
}

namespace {
struct Removal
{
    std::optional<QString> result;
    QString out;
};

Removal remove(const QString &text, QStringView start, QStringView end)
{
    Removal r;
    r.out = QStringLiteral("stale");
    r.result = removeSubstringBetween(text, start, end, &r.out);
    return r;
}
} // namespace

TEST(TextHelpers, RemoveSubstringBetweenKeepsTailOnlyWhenTwoOrMoreCharactersFollow)
{
    auto r = remove(QStringLiteral("x[ab]yz"), u"[", u"]");
    EXPECT_EQ(r.result, QStringLiteral("xyz"));
    EXPECT_EQ(r.out, QStringLiteral("ab"));

    r = remove(QStringLiteral("x[ab]y"), u"[", u"]");
    EXPECT_EQ(r.result, QStringLiteral("x")); // a single trailing character is dropped
    EXPECT_EQ(r.out, QStringLiteral("ab"));

    r = remove(QStringLiteral("x[ab]"), u"[", u"]");
    EXPECT_EQ(r.result, QStringLiteral("x"));
    EXPECT_EQ(r.out, QStringLiteral("ab"));

    r = remove(QStringLiteral("ab**x**c"), u"**", u"**");
    EXPECT_EQ(r.result, QStringLiteral("ab"));
    EXPECT_EQ(r.out, QStringLiteral("x"));

    r = remove(QStringLiteral("ab**x**cd"), u"**", u"**");
    EXPECT_EQ(r.result, QStringLiteral("abcd"));
    EXPECT_EQ(r.out, QStringLiteral("x"));

    r = remove(QStringLiteral("[ab]"), u"[", u"]");
    ASSERT_TRUE(r.result.has_value());
    EXPECT_TRUE(r.result->isEmpty()); // empty, yet present
    EXPECT_EQ(r.out, QStringLiteral("ab"));

    // Empty inner part: present but empty.
    r = remove(QStringLiteral("x[]yz"), u"[", u"]");
    EXPECT_EQ(r.result, QStringLiteral("xyz"));
    EXPECT_TRUE(r.out.isEmpty());
    EXPECT_FALSE(r.out.isNull());
}

TEST(TextHelpers, RemoveSubstringBetweenAbsentWhenFewerThanTwoFollowStart)
{
    auto r = remove(QStringLiteral("x["), u"[", u"]");
    EXPECT_FALSE(r.result.has_value());
    EXPECT_TRUE(r.out.isNull());

    r = remove(QStringLiteral("x[]"), u"[", u"]"); // one character follows: absent, even though "]" is there
    EXPECT_FALSE(r.result.has_value());
    EXPECT_TRUE(r.out.isNull());

    r = remove(QStringLiteral("ab**x"), u"**", u"**");
    EXPECT_FALSE(r.result.has_value());
}

TEST(TextHelpers, RemoveSubstringBetweenUnchangedWhenAMarkerIsMissing)
{
    auto r = remove(QStringLiteral("no markers"), u"[", u"]");
    EXPECT_EQ(r.result, QStringLiteral("no markers"));
    EXPECT_TRUE(r.out.isNull()); // cleared even when nothing is removed

    r = remove(QStringLiteral("x[abc"), u"[", u"]");
    EXPECT_EQ(r.result, QStringLiteral("x[abc"));
    EXPECT_TRUE(r.out.isNull());

    // The end marker is searched only after the start marker.
    r = remove(QStringLiteral("a]b[cd"), u"[", u"]");
    EXPECT_EQ(r.result, QStringLiteral("a]b[cd"));

    // The start marker's own characters cannot serve as the end marker.
    r = remove(QStringLiteral("ab**xy"), u"**", u"**");
    EXPECT_EQ(r.result, QStringLiteral("ab**xy"));

    r = remove(QString(), u"[", u"]");
    ASSERT_TRUE(r.result.has_value());
    EXPECT_TRUE(r.result->isEmpty());
}

TEST(TextHelpers, RemoveSubstringBetweenUsesFirstStartAndNextEnd)
{
    QString out;
    const auto result = removeSubstringBetween(QStringLiteral("a[b]c[d]ef"), u"[", u"]", &out);
    EXPECT_EQ(result, QStringLiteral("ac[d]ef"));
    EXPECT_EQ(out, QStringLiteral("b"));
    // The output place is optional.
    EXPECT_EQ(removeSubstringBetween(QStringLiteral("x[ab]yz"), u"[", u"]"), QStringLiteral("xyz"));
}

TEST(TextHelpers, IsValidUtf8AgreesWithQtAtEveryPositionOfTheFirstNonAsciiByte)
{
    // The ASCII lane hands over at a word boundary or byte by byte: a bad or good multi-byte
    // character must be judged the same wherever it starts, including inside the last partial word.
    const QList<QByteArray> tails{"\xc3\xa9", "\xe6\x9d\xb1", "\xf0\x9f\x98\x80", "\xff", "\xc3", "\xe2\x82",
                                  "\xed\xa0\x80", "\xc0\xaf", "\x80"};
    for (const QByteArray &tail : tails) {
        for (int prefix = 0; prefix < 20; ++prefix) {
            for (int suffix : {0, 1, 9}) {
                const QByteArray bytes = QByteArray(prefix, 'a') + tail + QByteArray(suffix, 'z');
                EXPECT_EQ(qf::isValidUtf8(bytes), QByteArrayView(bytes).isValidUtf8())
                    << bytes.toHex().constData();
            }
        }
    }
    EXPECT_TRUE(qf::isValidUtf8(QByteArrayView()));
    EXPECT_TRUE(qf::isValidUtf8("plain ascii line of some length\n"));
}
