// SPDX-License-Identifier: MIT
#include "Filters/SearchQuery.h"

#include "Filters/FilterComposer.h"

#include <gtest/gtest.h>

TEST(SearchQuery, StudioKeysTranslateIntoTheFilterLanguage)
{
    // {text, printed filter}; an empty print: not a query (a plain search).
    const QList<std::pair<const char *, QString>> cases = {
        {"ActivityManager", {}},
        {"error: bad thing", {}}, // "error" is no key: a plain search for the text
        {"see http://x.org", {}},
        {"tag:Net", "name CONTAINS[cd] \"Net\""},
        {"TAG:Net tag:Okhttp", "name CONTAINS[cd] \"Net\" OR name CONTAINS[cd] \"Okhttp\""},
        {"package:shop app:chat pid:47",
         "(app CONTAINS[cd] \"shop\" OR app CONTAINS[cd] \"chat\") AND pid CONTAINS[cd] \"47\""},
        {"level:W", "type IN[cd] \"W,E,F,A\""},
        {"level:error tid:12", "tid CONTAINS[cd] \"12\" AND type IN[cd] \"E,F,A\""},
        {"-tag:chatty msg:\"not attached\"", "text CONTAINS[cd] \"not attached\" AND NOT name CONTAINS[cd] \"chatty\""},
        {"message~:^GC_.*freed tag=:OkHttp", "name == \"OkHttp\" AND text MATCHES \".*(?:^GC_.*freed).*\""},
        {"tag:Net timeout", "name CONTAINS[cd] \"Net\" AND (" + SearchQuery::plainSearch("timeout").toString() + ")"},
        {"app:\"a \\\"b\\\"\"", "app CONTAINS[cd] \"a \\\"b\\\"\""},
    };
    for (const auto &[text, printed] : cases) {
        SCOPED_TRACE(text);
        const SearchQuery::Result r = SearchQuery::translate(QString::fromUtf8(text));
        EXPECT_EQ(r.isQuery, !printed.isEmpty());
        EXPECT_EQ(r.error, QString());
        EXPECT_EQ(r.filter.toString(), printed);
        if (r.isQuery) { // the printed form is the language's: it parses back to the same filter
            EXPECT_EQ(Filter::parse(printed), r.filter);
        }
    }
}

TEST(SearchQuery, UnknownKeysAndLevelsAreToldNotSearched)
{
    for (const char *text : {"tag:Net colour:red", "level:loud", "tag~:(unclosed"}) {
        SCOPED_TRACE(text);
        const FilterComposer::Outcome out = FilterComposer::searchFilter(QString::fromUtf8(text));
        EXPECT_TRUE(out.failed());
        EXPECT_TRUE(out.showError);
        EXPECT_TRUE(out.filter.isNull());
    }
    EXPECT_TRUE(SearchQuery::translate("tag:Net colour:red").error.contains("\"colour\""));

    // In the editor, a key that entries lack is refused, naming what the language knows.
    const QString error = FilterComposer::unknownKeyError(Filter::parse("type == 'E' OR NOT tag == \"x\""));
    EXPECT_TRUE(error.startsWith("Unknown key \"tag\"")) << error.toStdString();
    EXPECT_TRUE(error.contains("name (the tag)") && error.contains("type (the level)"));
    EXPECT_EQ(FilterComposer::unknownKeyError(Filter::parse("name == 'x' AND idx > 3")), QString());
}
