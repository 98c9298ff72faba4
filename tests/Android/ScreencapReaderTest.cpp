// SPDX-License-Identifier: MIT
#include "Android/ScreencapReader.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QPainter>

namespace {

QByteArray pngOf(const QImage &image)
{
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return png;
}

} // namespace

TEST(ScreencapReader, RepairTurnsCrLfBackIntoLfAndLeavesEveryOtherCr)
{
    const struct
    {
        QByteArray in, out;
    } cases[] = {
        {"a\r\nb", "a\nb"},
        {"\r\n\r\n", "\n\n"},
        {"a\rb", "a\rb"},       // a lone CR stays
        {"ab\r", "ab\r"},       // so does a final one
        {"a\r\r\nb", "a\r\nb"}, // CR CR LF: only the pair is one LF
        {"\n\r", "\n\r"},
        {"", ""},
        {QByteArray("x\0\r\n\0", 5), QByteArray("x\0\n\0", 4)},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.in.toPercentEncoding().toStdString());
        EXPECT_EQ(ScreencapReader::repairLineEndings(c.in), c.out);
    }
}

TEST(ScreencapReader, DecodesTranslatedPngsAndOnesCutOffAfterIend)
{
    QImage image(64, 48, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QPainter(&image).fillRect(10, 10, 20, 20, Qt::yellow);
    const QByteArray png = pngOf(image);
    ASSERT_TRUE(png.contains('\n')); // the signature alone has two line feeds
    const QByteArray cut = png.left(png.lastIndexOf("IEND") + 4);

    const struct
    {
        const char *name;
        QByteArray bytes;
    } cases[] = {
        {"as sent", png},
        {"translated by a pty", QByteArray(png).replace("\n", "\r\n")},
        {"without the IEND CRC", cut},
        {"translated, without the CRC", QByteArray(cut).replace("\n", "\r\n")},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const QImage decoded = ScreencapReader::createImageFromData(c.bytes);
        ASSERT_FALSE(decoded.isNull());
        EXPECT_EQ(decoded.convertToFormat(QImage::Format_RGB32), image);
    }
    EXPECT_TRUE(ScreencapReader::createImageFromData("not a png").isNull());
    EXPECT_TRUE(ScreencapReader::createImageFromData(png.left(png.size() / 2)).isNull());
}
