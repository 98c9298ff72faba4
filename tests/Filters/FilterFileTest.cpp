// SPDX-License-Identifier: MIT
#include "Filters/FilterFile.h"

#include "support/PropertyLists.h"

#include <gtest/gtest.h>

namespace {

using Entries = QList<FilterFile::Entry>;

std::map<QString, QString> asMap(const Entries &entries)
{
    std::map<QString, QString> map;
    for (const FilterFile::Entry &e : entries)
        map[e.name] = e.text;
    return map;
}

} // namespace

TEST(FilterFileTest, ReadsTheDictionaryInBothForms)
{
    const QList<std::pair<QString, QString>> pairs = {
        {"LogLevel Warn", "type IN[cd] 'W,E,F,A'"},
        {"Has Note", "note !=[cd] ''"},
        {"Ünïcödé 日志", "text CONTAINS '<&>\"' AND name == 'x'"},
        {"empty", ""},
    };
    const std::map<QString, QString> expected(pairs.begin(), pairs.end());
    for (bool binary : {false, true}) {
        QString error;
        const std::optional<Entries> entries = FilterFile::read(stringDictionary(pairs, binary), &error);
        EXPECT_EQ(asMap(entries.value_or(Entries())), expected) << binary << error.toStdString();
        EXPECT_TRUE(error.isEmpty());
    }
    // A bare dictionary, comments and an empty string element are fine too.
    const auto bare = FilterFile::read("<?xml version=\"1.0\"?><!-- x --><dict><key>a</key><string/></dict>\n");
    EXPECT_EQ(asMap(bare.value_or(Entries())), (std::map<QString, QString>{{"a", ""}}));
}

TEST(FilterFileTest, AnythingButADictionaryOfTextIsRefusedWithAReason)
{
    const QByteArray head = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
    const QList<std::pair<const char *, QByteArray>> cases = {
        {"not a property list", "type == 'x'"},
        {"empty", ""},
        {"root array", head + "<array><string>a</string></array></plist>"},
        {"value not text", head + "<dict><key>a</key><integer>1</integer></dict></plist>"},
        {"nested dictionary", head + "<dict><key>a</key><dict/></dict></plist>"},
        {"key without value", head + "<dict><key>a</key></dict></plist>"},
        {"element inside text", head + "<dict><key>a</key><string>x<b/></string></dict></plist>"},
        {"two dictionaries", head + "<dict></dict><dict></dict></plist>"},
        {"unclosed", head + "<dict><key>a</key><string>x</string>"},
        {"deeply nested", head + QByteArray("<array>").repeated(200000)},
        {"binary, wrong version", "bplist15" + QByteArray(40, '\0')},
        {"binary, truncated", stringDictionary(QList<std::pair<QString, QString>>{{"a", "b"}}, true).chopped(5)},
        {"binary, root array", plistBytes(plist_new_array(), true)},
    };
    for (const auto &[what, bytes] : cases) {
        QString error;
        EXPECT_FALSE(FilterFile::read(bytes, &error)) << what;
        EXPECT_TRUE(error.startsWith("Not a filters file")) << what << ": " << error.toStdString();
    }
}

TEST(FilterFileTest, HostileBinaryStructureIsRefusedNotFollowed)
{
    const QByteArray good = stringDictionary(QList<std::pair<QString, QString>>{{"a", "b"}, {"c", "d"}}, true);
    const qsizetype trailer = good.size() - 32;
    // Each damage in turn: a count larger than the file, a reference past the table, an offset out of
    // the object area, a reference size of zero.
    const auto damaged = [&](auto change) {
        QByteArray bytes = good;
        change(bytes);
        return bytes;
    };
    const quint64 table = [&] {
        quint64 v = 0;
        for (int i = 0; i < 8; ++i)
            v = v << 8 | uchar(good[trailer + 24 + i]);
        return v;
    }();
    const int offsetSize = uchar(good[trailer + 6]);
    const int top = uchar(good[trailer + 23]);
    const qsizetype rootOffsetAt = qsizetype(table) + top * offsetSize;
    const QList<std::pair<const char *, QByteArray>> cases = {
        {"huge dictionary count", damaged([&](QByteArray &b) {
             const qsizetype root = uchar(b[rootOffsetAt + offsetSize - 1]);
             b[root] = char(0xDF);     // count in a following integer...
             b[root + 1] = char(0x13); // ...of 8 bytes
             b.insert(root + 2, QByteArray("\x7f\xff\xff\xff\xff\xff\xff\xff", 8));
         })},
        {"object count past the file", damaged([&](QByteArray &b) { b[trailer + 8] = char(0x7f); })},
        {"top object out of range", damaged([&](QByteArray &b) { b[trailer + 23] = char(0x7f); })},
        {"offset outside the objects", damaged([&](QByteArray &b) { b[rootOffsetAt + offsetSize - 1] = char(0xff); })},
        {"reference size zero", damaged([&](QByteArray &b) { b[trailer + 7] = 0; })},
    };
    for (const auto &[what, bytes] : cases) {
        QString error;
        EXPECT_FALSE(FilterFile::read(bytes, &error)) << what;
        EXPECT_FALSE(error.isEmpty()) << what;
    }
}

TEST(FilterFileTest, NestingIsRefusedAtTheFirstContainerWhateverItsDepth)
{
    // A binary list 50,000 arrays deep, each holding the next: recursive readers run out of stack.
    constexpr quint32 depth = 50000;
    QByteArray bytes("bplist00");
    QList<quint32> offsets;
    for (quint32 i = 0; i < depth; ++i) {
        offsets << quint32(bytes.size());
        const quint32 next = i + 1;
        bytes += char(0xA1);
        bytes += char(next >> 24) + QByteArray(1, char(next >> 16)) + char(next >> 8) + char(next);
    }
    offsets << quint32(bytes.size());
    bytes += "\x51x";
    const quint64 table = quint64(bytes.size());
    for (quint32 offset : offsets)
        bytes += QByteArray(1, char(offset >> 24)) + char(offset >> 16) + char(offset >> 8) + char(offset);
    QByteArray trailer(32, '\0');
    trailer[6] = 4; // offset size
    trailer[7] = 4; // reference size
    const auto put = [&](int at, quint64 v) {
        for (int i = 7; i >= 0; --i, v >>= 8)
            trailer[at + i] = char(v & 0xff);
    };
    put(8, offsets.size());
    put(16, 0);
    put(24, table);
    bytes += trailer;

    QString error;
    EXPECT_FALSE(FilterFile::read(bytes, &error));
    EXPECT_TRUE(error.contains("dictionary")) << error.toStdString();
}
