// SPDX-License-Identifier: MIT
#include "Log/TextDecoding.h"

#include <QStringEncoder>
#include <gtest/gtest.h>

namespace {

QByteArray encoded(QStringConverter::Encoding encoding, const QString &text, bool withMark)
{
    QStringEncoder encoder(encoding, withMark ? QStringConverter::Flag::WriteBom : QStringConverter::Flag::Default);
    return encoder.encode(text);
}

const QString kLines = QStringLiteral("01-23 14:05:06.789  1  2 I 标签: 日志 café ✓ 𝄞\n"
                                      "01-23 14:05:06.790  1  2 W Tag: plain ascii line\n");

} // namespace

TEST(TextDecodingTest, EveryUnicodeFormWithOrWithoutMarkComesBackAsTheSameText)
{
    const std::tuple<QStringConverter::Encoding, bool, const char *> cases[] = {
        {QStringConverter::Utf8, false, "UTF-8"},       {QStringConverter::Utf8, true, "UTF-8"},
        {QStringConverter::Utf16LE, true, "UTF-16LE"},  {QStringConverter::Utf16BE, true, "UTF-16BE"},
        {QStringConverter::Utf16LE, false, "UTF-16LE"}, {QStringConverter::Utf16BE, false, "UTF-16BE"},
        {QStringConverter::Utf32LE, true, "UTF-32LE"},  {QStringConverter::Utf32BE, true, "UTF-32BE"},
    };
    for (const auto &[encoding, mark, name] : cases) {
        SCOPED_TRACE(std::string(name) + (mark ? " with mark" : " without mark"));
        const TextDecoding::Result r = TextDecoding::decode(encoded(encoding, kLines.repeated(3), mark));
        EXPECT_EQ(r.encoding, name);
        EXPECT_EQ(QString::fromUtf8(r.utf8), kLines.repeated(3));
    }
}

TEST(TextDecodingTest, AStrayByteInUtf8KeepsTheRestUtf8)
{
    // The CJK line must not turn to mojibake because a later line has one bad byte.
    const QByteArray data = QStringLiteral("I 标签: 日志内容\n").toUtf8() + "W Tag: broken \xFF here\n";
    const TextDecoding::Result r = TextDecoding::decode(data);
    EXPECT_EQ(r.encoding, "UTF-8");
    EXPECT_EQ(r.step, TextDecoding::Step::Detected);
    EXPECT_EQ(QString::fromUtf8(r.utf8), QStringLiteral("I 标签: 日志内容\nW Tag: broken \uFFFD here\n"));

    // "Å" is C3 85: read as ISO 8859-1 its 0x85 would be NEL, a line end that splits the entry.
    const QByteArray nel = QByteArray("T: \xC3\x85ngstr\xC3\xB6m \xC3\xA5r\n") + "T: bad \xFE\n";
    const QString text = QString::fromUtf8(TextDecoding::decode(nel).utf8);
    EXPECT_EQ(text.count(QChar(0x85)), 0);
    EXPECT_TRUE(text.startsWith(QStringLiteral("T: Ångström år\n")));
}

TEST(TextDecodingTest, SingleByteTextFallsBackToLatin1)
{
    const QByteArray latin1 = "T: caf\xE9 na\xEFve \xFC"
                              "ber\n";
    const TextDecoding::Result r = TextDecoding::decode(latin1);
    EXPECT_EQ(r.encoding, "ISO 8859-1");
    EXPECT_EQ(r.step, TextDecoding::Step::Latin1);
    EXPECT_EQ(QString::fromUtf8(r.utf8), QStringLiteral("T: café naïve über\n"));
    // Valid UTF-8 is handed back untouched, NUL bytes and all.
    const QByteArray withNul("T: a\0b\nT: zero byte\0 in a UTF-8 line\n", 37);
    EXPECT_EQ(TextDecoding::decode(withNul).utf8, withNul);
    EXPECT_EQ(TextDecoding::decode(QByteArray()).encoding, "UTF-8");
}

TEST(TextDecodingTest, DamageIsMeasuredByWholeCharacters)
{
    const std::tuple<QByteArray, qsizetype, qsizetype> cases[] = {
        {"\xC3\xA9\xE6\x97\xA5\xF0\x9D\x84\x9E", 3, 0}, // 2-, 3- and 4-byte characters
        {"\xC0\xAF", 0, 2},                             // overlong lead: both bytes bad
        {"\xE6\x97", 0, 2},                             // truncated at the end
        {"\x80\xBF", 0, 2},                             // lone continuations
        {"\xF5\x80\x80\x80", 0, 4},                     // beyond U+10FFFF
        {"a\xE6\x97z\xC3\xA9", 1, 2},
    };
    for (const auto &[bytes, good, bad] : cases) {
        const TextDecoding::Utf8Damage d = TextDecoding::measureUtf8(bytes);
        EXPECT_EQ(std::pair(d.goodMultiByte, d.badSequences), std::pair(good, bad)) << bytes.toHex().constData();
    }
}
