// SPDX-License-Identifier: MIT
#include "Log/TextDecoding.h"

#include <QStringDecoder>

namespace {

// Enough of the file to see the zero-byte pattern of UTF-16 text.
constexpr qsizetype kSniffBytes = 64 * 1024;

QByteArray decodeWith(QStringConverter::Encoding encoding, QByteArrayView bytes)
{
    QStringDecoder decoder(encoding, QStringConverter::Flag::Stateless);
    return QString(decoder.decode(bytes)).toUtf8();
}

// UTF-16 without a mark: mostly-ASCII text has a zero in every other byte, on the odd positions for
// little endian and the even ones for big endian. Text in other scripts has fewer zeros, but still
// far more on one side than the other.
std::optional<QStringConverter::Encoding> sniffUtf16(QByteArrayView data)
{
    const qsizetype n = std::min(data.size(), kSniffBytes) & ~qsizetype(1);
    if (n < 16) // too little to tell from text that happens to hold a zero byte
        return std::nullopt;
    qsizetype evenZeros = 0;
    qsizetype oddZeros = 0;
    for (qsizetype i = 0; i < n; i += 2) {
        evenZeros += data[i] == 0;
        oddZeros += data[i + 1] == 0;
    }
    const qsizetype pairs = n / 2;
    // A third of the units with a zero high byte, and the other side nearly free of zeros.
    if (oddZeros * 3 >= pairs && evenZeros * 20 <= oddZeros)
        return QStringConverter::Utf16LE;
    if (evenZeros * 3 >= pairs && oddZeros * 20 <= evenZeros)
        return QStringConverter::Utf16BE;
    return std::nullopt;
}

} // namespace

TextDecoding::Result TextDecoding::decode(QByteArray data)
{
    return decode(std::move(data), [](QByteArrayView bytes) { return bytes.isValidUtf8(); });
}

std::optional<TextDecoding::Result> TextDecoding::decodeMarked(const QByteArray &data)
{
    struct Mark
    {
        QByteArrayView bytes;
        QStringConverter::Encoding encoding;
        const char *name;
    };
    // UTF-32 LE before UTF-16 LE: its mark begins with the other's.
    static const Mark marks[] = {
        {QByteArrayView("\xEF\xBB\xBF", 3), QStringConverter::Utf8, "UTF-8"},
        {QByteArrayView("\xFF\xFE\x00\x00", 4), QStringConverter::Utf32LE, "UTF-32LE"},
        {QByteArrayView("\x00\x00\xFE\xFF", 4), QStringConverter::Utf32BE, "UTF-32BE"},
        {QByteArrayView("\xFF\xFE", 2), QStringConverter::Utf16LE, "UTF-16LE"},
        {QByteArrayView("\xFE\xFF", 2), QStringConverter::Utf16BE, "UTF-16BE"},
    };
    for (const Mark &mark : marks) {
        if (!QByteArrayView(data).startsWith(mark.bytes))
            continue;
        const QByteArrayView body = QByteArrayView(data).sliced(mark.bytes.size());
        if (mark.encoding == QStringConverter::Utf8) {
            // Bad bytes after a UTF-8 mark are still UTF-8 damage, not another encoding.
            QByteArray utf8 = body.isValidUtf8() ? body.toByteArray() : QString::fromUtf8(body).toUtf8();
            return Result{std::move(utf8), QString::fromLatin1(mark.name), Step::Utf8};
        }
        return Result{decodeWith(mark.encoding, body), QString::fromLatin1(mark.name), Step::Utf8};
    }
    return std::nullopt;
}

std::optional<TextDecoding::Result> TextDecoding::decodeUnmarkedUtf16(const QByteArray &data)
{
    const auto utf16 = sniffUtf16(data);
    if (!utf16)
        return std::nullopt;
    const bool le = *utf16 == QStringConverter::Utf16LE;
    return Result{decodeWith(*utf16, data), le ? QStringLiteral("UTF-16LE") : QStringLiteral("UTF-16BE"),
                  Step::Detected};
}

TextDecoding::Result TextDecoding::decodeInvalidUtf8(const QByteArray &data)
{
    const Utf8Damage damage = measureUtf8(data);
    if (damage.badSequences <= damage.goodMultiByte)
        return {QString::fromUtf8(data).toUtf8(), QStringLiteral("UTF-8"), Step::Detected};
    return {latin1ToUtf8(data), QStringLiteral("ISO 8859-1"), Step::Latin1};
}

TextDecoding::Utf8Damage TextDecoding::measureUtf8(QByteArrayView data)
{
    Utf8Damage damage;
    const auto *p = reinterpret_cast<const uchar *>(data.data());
    const auto *end = p + data.size();
    const auto continuation = [&](const uchar *q, int count) {
        if (end - q < count)
            return false;
        for (int i = 0; i < count; ++i) {
            if ((q[i] & 0xC0) != 0x80)
                return false;
        }
        return true;
    };
    while (p < end) {
        const uchar c = *p;
        if (c < 0x80) {
            ++p;
            continue;
        }
        // Lead bytes that can start a shortest-form character: C2..DF, E0..EF, F0..F4.
        const int extra = c >= 0xC2 && c <= 0xDF ? 1 : c >= 0xE0 && c <= 0xEF ? 2 : c >= 0xF0 && c <= 0xF4 ? 3 : 0;
        if (extra && continuation(p + 1, extra)) {
            ++damage.goodMultiByte;
            p += 1 + extra;
        } else {
            ++damage.badSequences;
            ++p;
        }
    }
    return damage;
}

QByteArray TextDecoding::latin1ToUtf8(QByteArrayView data)
{
    qsizetype high = 0;
    for (char c : data)
        high += uchar(c) >= 0x80;
    QByteArray out(data.size() + high, Qt::Uninitialized);
    char *o = out.data();
    for (char c : data) {
        const auto u = uchar(c);
        if (u < 0x80) {
            *o++ = c;
        } else {
            *o++ = char(0xC0 | (u >> 6));
            *o++ = char(0x80 | (u & 0x3F));
        }
    }
    return out;
}
