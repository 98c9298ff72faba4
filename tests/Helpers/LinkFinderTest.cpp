// SPDX-License-Identifier: MIT
#include "Helpers/LinkFinder.h"

#include <gtest/gtest.h>

TEST(LinkFinderTest, FindsLinksWithoutTheirTrailingPunctuation)
{
    const std::pair<const char *, QStringList> cases[] = {
        {"no link here, only example.com and a:b", {}},
        {"--> GET https://api.example.com/v1/items?page=2 http/1.1", {"https://api.example.com/v1/items?page=2"}},
        {"see (http://x.org/a_(b)).", {"http://x.org/a_(b)"}},
        {"www.example.com, then ftp://files.example.org/x;", {"http://www.example.com", "ftp://files.example.org/x"}},
        {"write to mailto:dev@example.org. or file:///tmp/a.log", {"mailto:dev@example.org", "file:///tmp/a.log"}},
        {"http://, https:///x", {}}, // no host
    };
    for (const auto &[text, links] : cases) {
        QStringList found;
        for (const QUrl &url : LinkFinder::links(QString::fromUtf8(text)))
            found << url.toString();
        EXPECT_EQ(found, links) << text;
    }
    // Where each link stands in the text (the viewer marks exactly those units).
    const QList<LinkFinder::Match> matches = LinkFinder::find(QStringLiteral("é (www.x.org)."));
    ASSERT_EQ(matches.size(), 1);
    EXPECT_EQ(matches[0].start, 3);
    EXPECT_EQ(matches[0].length, 9);
}
