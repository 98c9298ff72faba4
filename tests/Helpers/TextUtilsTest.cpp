// SPDX-License-Identifier: MIT
#include "Helpers/TextUtils.h"

#include <gtest/gtest.h>

namespace {

// Each row is one of the printer's character rules: the input and what it prints.
void expectEach(const std::initializer_list<std::pair<QString, QString>> &rows, QString (*print)(const QString &))
{
    for (const auto &[input, expected] : rows)
        EXPECT_EQ(print(input), expected) << "input: " << input.toStdString();
}

} // namespace

TEST(TextUtils, JsonPrinterCharacterRules)
{
    expectEach(
        {
            // Nested object and array; ']' then '}' trims the line after ']'.
            {R"({"a":1,"b":[true,null]})",
             "\n{\n    \"a\" : 1,\n    \"b\" : \n    [\n        true,\n        null\n    ]\n}"},
            {"x = {}", "x = \n{\n}"},                                      // leading text kept, empty object
            {R"(["a", "b"])", "\n[\n    \"a\",\n    \"b\"\n]\n"},          // a top-level ']' gets a line feed, '}' not
            {R"({"k":"{a,b:[c]}"})", "\n{\n    \"k\" : \"{a,b:[c]}\"\n}"}, // brackets and commas in strings are copied
            {R"({"a\\","b":1})", "\n{\n    \"a\\\\\",\"b\":1}"},     // an escaped backslash still escapes the quote
            {R"({"k" :1})", "\n{\n    \"k\":1\n}"},                  // a blank before the colon: the colon stays bare
            {R"({"a":1} tail, x)", "\n{\n    \"a\" : 1\n} tail, x"}, // text after the final brace stays on its line
                                                                     // Quotes outside brackets never start a string;
                                                                     // the next one inside does.
            {R"("{" [1])", "\"\n{\n    \" [1]"},
            {R"({}} a, b:c [1])", "\n{\n}} a, b:c \n[\n    1\n]\n"}, // an extra closer: copied until the next opener
                                                                     // Whitespace inside brackets outside strings goes.
            {"{ \"a\" :\t[ 1 ,\r\n 2 ] }", "\n{\n    \"a\":\n    [\n        1,\n        2\n    ]\n}"},
            // Inner braces get a line feed after them, the outer one not.
            {R"({"a":{"b":{}}})", "\n{\n    \"a\" : \n    {\n        \"b\" : \n        {\n        }\n    }\n}"},
            // UTF-16 units, surrogates copied as they are.
            {QString::fromUtf16(u"{\"\U0001F600\":\"\u00e9\"}"),
             QString::fromUtf16(u"\n{\n    \"\U0001F600\" : \"\u00e9\"\n}")},
        },
        TextUtils::lenientJsonPrettyPrinter);
}

TEST(TextUtils, XmlPrinterCharacterRules)
{
    expectEach(
        {
            {"<a><b>x</b></a>", "\n    <a>\n        <b>x</b>\n    </a>"}, // a closer after text stays on its line
            {R"(<?xml version="1.0"?><r/>)", "\n<?xml version=\"1.0\"?>\n    <r/>"}, // declaration at the margin
            {"x", ""},                                                               // one character gives nothing
            {"a<", "a\n    <"},                                                      // a last '<' still opens a tag
            {"<a/><b/><c>", "\n    <a/>\n        <b/>\n            <c>"}, // self-closing tags never indent less
            {"<a><b>?\?<c>", "\n    <a>\n        <b>\n?\?\n    <c>"},     // '??' anywhere resets the indentation
            // A comment after a closer is indented by the count, and its '>' decreases it again.
            {"<a><b></b><!-- x --><c>", "\n    <a>\n        <b></b>\n    <!-- x -->\n    <c>"},
            {"</a></b><c>", "</a>\n</b>\n<c>"},       // the count may go negative: no indentation
            {"<a> x y\n</a>", "\n    <a> x y\n</a>"}, // text between tags copied with its whitespace
        },
        TextUtils::lenientXMLPrettyPrinter);

    // From a start state, appending: index 3 with two units; the '>' of </a> took one.
    QString result = QStringLiteral("head");
    EXPECT_EQ(&TextUtils::xmlPrettyPrinter(QStringLiteral("<a>x</a><b>"), 3, 2, result), &result);
    EXPECT_EQ(result, "headx</a>\n        <b>");
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
    TextUtils::addTabs(2, tabs);
    EXPECT_EQ(tabs, "x        ");

    EXPECT_EQ(TextUtils::truncate(QStringLiteral("abcdef"), 6), "abcdef");
    EXPECT_EQ(TextUtils::truncate(QStringLiteral("abcdef"), 5), "abcde...") << "may end up longer than the text";
}
