// SPDX-License-Identifier: MIT
#include "Android/AdbProtocol.h"

#include <gtest/gtest.h>

#include <QList>

using namespace AdbProtocol;

TEST(AdbProtocol, FramesRequestsWithFourHexDigitsOfTheCharacterCount)
{
    EXPECT_EQ(frameRequest(QStringLiteral("host:devices")), QByteArray("000chost:devices"));
    EXPECT_EQ(lengthHeader(QString()), QByteArray("0000"));
    EXPECT_EQ(lengthHeader(QString(255, u'a')), QByteArray("00ff"));
    // Lower case, and more than four digits past 0xffff, as "%.4lx" prints.
    EXPECT_EQ(lengthHeader(QString(0xabc, u'a')), QByteArray("0abc"));
    EXPECT_EQ(lengthHeader(QString(0x10000, u'a')), QByteArray("10000"));
}

TEST(AdbProtocol, LengthCountsUtf16CodeUnitsNotUtf8Bytes)
{
    const QString request = QStringLiteral("host:transport:\u00e9\U0001F600"); // 15 + 1 + 2 code units
    EXPECT_EQ(lengthHeader(request), QByteArray("0012"));
    EXPECT_EQ(frameRequest(request).mid(4), request.toUtf8());
}

TEST(AdbProtocol, OkayIsExactlyTheFourUpperCaseBytes)
{
    EXPECT_TRUE(isOkay("OKAY"));
    for (const QByteArray &other :
         {QByteArray("okay"), QByteArray("OKA"), QByteArray("OKAYX"), QByteArray(), QByteArray("OK\0Y", 4)})
        EXPECT_FALSE(isOkay(other)) << other.toHex().toStdString();
}

TEST(AdbProtocol, HexDataToIntegerDecodesTheFourByteLengthField)
{
    // The text rules themselves: AdbReplyFuzz.HexScannerAgreesWithAReferenceOnRandomText.
    EXPECT_EQ(hexDataToInteger("ffff"), 0xffffu);
    EXPECT_EQ(hexDataToInteger("00\xff"
                               "1"),
              0u); // not UTF-8
}

TEST(AdbProtocol, StringFromDataIsAbsentForInvalidUtf8)
{
    EXPECT_EQ(stringFromData("abc\n"), QStringLiteral("abc\n"));
    EXPECT_EQ(stringFromData(""), QString()); // present, empty
    EXPECT_EQ(stringFromData("\xc3\xa9"), QStringLiteral("\u00e9"));
    EXPECT_EQ(stringFromData("\xef\xbb\xbfx"), QStringLiteral("\ufeffx")); // a BOM stays a character

    // An invalid byte, a sequence cut at the end, an overlong form, an encoded surrogate, beyond U+10FFFF.
    for (const char *bad : {"ab\xff"
                            "cd",
                            "ab\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80"})
        EXPECT_FALSE(stringFromData(bad).has_value()) << QByteArray(bad).toHex().constData();
}

TEST(AdbProtocol, DecoderDoesNotCarryStateFromOneLineToTheNext)
{
    Utf8Decoder decoder;
    EXPECT_FALSE(decoder.decode("ab\xe2\x82").has_value()); // a line cut inside a character
    EXPECT_EQ(decoder.decode("\xac\n"), std::nullopt);      // its tail alone is not valid either
    EXPECT_EQ(decoder.decode("\xe2\x82\xac\n"), QStringLiteral("\u20ac\n"));
    EXPECT_FALSE(decoder.decode("\xff\n").has_value());
    EXPECT_EQ(decoder.decode("ok\r\n"), QStringLiteral("ok\r\n")); // an error does not stick
}

TEST(AdbProtocol, BuildsRepliesWithAHexByteCount)
{
    EXPECT_EQ(okayReply(), QByteArray("OKAY"));
    EXPECT_EQ(failReply("device offline"), QByteArray("FAIL000edevice offline"));
    EXPECT_EQ(failReply(""), QByteArray("FAIL0000"));
    EXPECT_EQ(lengthPrefixed("\xc3\xa9"), QByteArray("0002\xc3\xa9")); // bytes, not characters
    EXPECT_EQ(lengthPrefixed(QByteArray(0x1abc, 'x')).left(4), QByteArray("1abc"));
}

TEST(AdbProtocol, StatusReplyIsCompleteOnlyOnceEveryByteHasArrivedAtWhateverSplit)
{
    struct Case
    {
        QByteArray bytes;
        StatusReply complete;
    };
    const QList<Case> cases = {
        {okayReply() + "trailing", {StatusReply::Okay, {}, 4}},
        {failReply("device not found") + "x", {StatusReply::Failed, "device not found", 24}},
        {failReply(""), {StatusReply::Failed, {}, 8}},
        {"okay0002ab", {StatusReply::Failed, "ab", 10}}, // any status but "OKAY" is a failure
        {"FAILzzzz", {StatusReply::Failed, {}, 8}},      // a length that is not hex reads as 0
    };
    for (const Case &c : cases) {
        const qsizetype end = c.complete.consumed;
        for (qsizetype received = 0; received <= c.bytes.size(); ++received) {
            const StatusReply reply = parseStatusReply(QByteArrayView(c.bytes).first(received));
            EXPECT_EQ(reply, received < end ? StatusReply{} : c.complete) << c.bytes.data() << " at " << received;
        }
    }
}
