// SPDX-License-Identifier: MIT
#include "Helpers/TextUtils.h"

#include <gtest/gtest.h>

namespace {

struct Case
{
    const char *why;
    QString input;
    QString expected;
};

void expectEach(const std::initializer_list<Case> &cases, QString (*print)(const QString &))
{
    for (const Case &c : cases) {
        SCOPED_TRACE(c.why);
        EXPECT_EQ(print(c.input), c.expected) << "input: " << c.input.toStdString();
    }
}

} // namespace

TEST(TextUtils, JsonPrinterCharacterRules)
{
    expectEach(
        {
            {"empty", "", ""},
            {"nested object and array; ']' then '}' trims the line after ']'", R"({"a":1,"b":[true,null]})",
             "\n{\n    \"a\" : 1,\n    \"b\" : \n    [\n        true,\n        null\n    ]\n}"},
            {"leading text kept, empty object", "x = {}", "x = \n{\n}"},
            {"a top-level ']' is followed by a line feed, a '}' is not", R"(["a", "b"])",
             "\n[\n    \"a\",\n    \"b\"\n]\n"},
            {"brackets, commas and colons inside strings are copied", R"({"k":"{a,b:[c]}"})",
             "\n{\n    \"k\" : \"{a,b:[c]}\"\n}"},
            {"an escaped backslash still escapes the quote: the string stays open", R"({"a\\","b":1})",
             "\n{\n    \"a\\\\\",\"b\":1}"},
            {"a blank before the colon: the colon stays bare", R"({"k" :1})", "\n{\n    \"k\":1\n}"},
            {"text after the final brace stays on its line", R"({"a":1} tail, x)", "\n{\n    \"a\" : 1\n} tail, x"},
            {"quotes outside brackets never start a string; the next one inside does", R"("{" [1])",
             "\"\n{\n    \" [1]"},
            {"an extra closer: copied as it is until the next opener", R"({}} a, b:c [1])",
             "\n{\n}} a, b:c \n[\n    1\n]\n"},
            {"whitespace inside brackets outside strings goes", "{ \"a\" :\t[ 1 ,\r\n 2 ] }",
             "\n{\n    \"a\":\n    [\n        1,\n        2\n    ]\n}"},
            {"inner braces get a line feed after them, the outer one not", R"({"a":{"b":{}}})",
             "\n{\n    \"a\" : \n    {\n        \"b\" : \n        {\n        }\n    }\n}"},
            {"UTF-16 units, surrogates copied as they are", QString::fromUtf16(u"{\"\U0001F600\":\"\u00e9\"}"),
             QString::fromUtf16(u"\n{\n    \"\U0001F600\" : \"\u00e9\"\n}")},
        },
        TextUtils::lenientJsonPrettyPrinter);
}

TEST(TextUtils, XmlPrinterCharacterRules)
{
    expectEach(
        {
            {"nesting; a closer after text stays on its line", "<a><b>x</b></a>",
             "\n    <a>\n        <b>x</b>\n    </a>"},
            {"declaration at the margin, self-closing tag", R"(<?xml version="1.0"?><r/>)",
             "\n<?xml version=\"1.0\"?>\n    <r/>"},
            {"one character gives nothing", "x", ""},
            {"empty", "", ""},
            {"a last '<' still opens a tag", "a<", "a\n    <"},
            {"self-closing tags never indent less again", "<a/><b/><c>", "\n    <a/>\n        <b/>\n            <c>"},
            {"'?\?' anywhere resets the indentation", "<a><b>?\?<c>", "\n    <a>\n        <b>\n?\?\n    <c>"},
            {"a comment after a closer is indented by the count, and its '>' decreases it again",
             "<a><b></b><!-- x --><c>", "\n    <a>\n        <b></b>\n    <!-- x -->\n    <c>"},
            {"the count may go negative: no indentation", "</a></b><c>", "</a>\n</b>\n<c>"},
            {"text between tags copied with its whitespace", "<a> x y\n</a>", "\n    <a> x y\n</a>"},
        },
        TextUtils::lenientXMLPrettyPrinter);
}

TEST(TextUtils, XmlPrinterAppendsFromItsStartState)
{
    QString result = QStringLiteral("head");
    const QString &returned = TextUtils::xmlPrettyPrinter(QStringLiteral("<a>x</a><b>"), 3, 2, result);
    EXPECT_EQ(&returned, &result);
    EXPECT_EQ(result, "headx</a>\n        <b>") << "starts at index 3 with two units; '>' of </a> took one";
    TextUtils::xmlPrettyPrinter(QStringLiteral("<a>"), 2, 0, result);
    EXPECT_EQ(result, "headx</a>\n        <b>") << "start at the last index: nothing appended";
}

TEST(TextUtils, SmallHelpers)
{
    QString s = QStringLiteral("a\t\r \n \n");
    TextUtils::trimEnd(s);
    EXPECT_EQ(s, "a\t\r") << "only line feeds and spaces go";
    s = QStringLiteral(" \n");
    TextUtils::trimEnd(s);
    EXPECT_EQ(s, "");

    QString tabs = QStringLiteral("x");
    TextUtils::addTabs(-1, tabs);
    TextUtils::addTabs(0, tabs);
    EXPECT_EQ(tabs, "x");
    TextUtils::addTabs(2, tabs);
    EXPECT_EQ(tabs, "x        ");

    EXPECT_EQ(TextUtils::truncate(QStringLiteral("abcdef"), 3), "abc...");
    EXPECT_EQ(TextUtils::truncate(QStringLiteral("abcdef"), 6), "abcdef");
    EXPECT_EQ(TextUtils::truncate(QStringLiteral("abcdef"), 5), "abcde...") << "may end up longer than the text";
}
