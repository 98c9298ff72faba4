// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <optional>

// Turns a log file's bytes into UTF-8, whatever they were written in. In order:
// 1. a byte-order mark names the encoding (UTF-8, UTF-32 LE/BE, UTF-16 LE/BE);
// 2. UTF-16 without a mark shows as zero bytes at every other position (which would pass as UTF-8);
// 3. valid UTF-8 is taken as it is;
// 4. UTF-8 damaged in a few places (no more bad sequences than good multi-byte characters) stays
//    UTF-8, each bad byte becoming U+FFFD, so one stray byte cannot turn CJK text into mojibake;
// 5. anything else is ISO 8859-1, which every byte sequence is.
class TextDecoding
{
public:
    enum class Step {
        Utf8,     // valid UTF-8, or a mark named the encoding
        Detected, // steps 2 and 4: not UTF-8 as it stands, but the bytes say what it is
        Latin1,   // the last resort
    };
    struct Result
    {
        QByteArray utf8;
        QString encoding; // "UTF-8", "UTF-16LE", "UTF-16BE", "UTF-32LE", "UTF-32BE", "ISO 8859-1"
        Step step = Step::Utf8;
    };

    // `isValidUtf8` answers step 3 for the whole buffer; the file reader passes a parallel check.
    template <typename ValidCheck> static Result decode(QByteArray data, ValidCheck &&isValidUtf8)
    {
        if (std::optional<Result> marked = decodeMarked(data))
            return std::move(*marked);
        if (std::optional<Result> utf16 = decodeUnmarkedUtf16(data))
            return std::move(*utf16);
        if (isValidUtf8(QByteArrayView(data)))
            return {std::move(data), QStringLiteral("UTF-8"), Step::Utf8};
        return decodeInvalidUtf8(data);
    }
    static Result decode(QByteArray data);

    // Counts over bytes that are not valid UTF-8 as a whole.
    struct Utf8Damage
    {
        qsizetype goodMultiByte = 0; // well-formed characters of two to four bytes
        qsizetype badSequences = 0;  // bytes that start no well-formed character
    };
    static Utf8Damage measureUtf8(QByteArrayView data);
    static QByteArray latin1ToUtf8(QByteArrayView data);

private:
    static std::optional<Result> decodeMarked(const QByteArray &data);
    static std::optional<Result> decodeUnmarkedUtf16(const QByteArray &data);
    static Result decodeInvalidUtf8(const QByteArray &data);
};
