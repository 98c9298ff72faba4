// SPDX-License-Identifier: MIT
#include "Filters/FilterComposer.h"

#include "Filters/SavedFilters.h"

#include <gtest/gtest.h>

#include <QVariantMap>

namespace {

SavedFilters defaults(SavedFilters::Storage storage = {})
{
    SavedFilters saved(std::move(storage));
    for (const auto &[name, text] : SavedFilters::defaultFilters())
        saved.setFilter(name, Filter::parse(text));
    return saved;
}

} // namespace

TEST(FilterComposer, SearchTextBecomesAFilter)
{
    EXPECT_TRUE(FilterComposer::searchFilter(QString()).filter.isNull());
    EXPECT_FALSE(FilterComposer::searchFilter(QString()).failed());

    const Filter activity = FilterComposer::searchFilter("Activity").filter;
    // Evaluating such a filter is the filter's business: the printed tree says all there is.
    EXPECT_EQ(activity.toString(),
              "name CONTAINS[cd] \"Activity\" OR text CONTAINS[cd] \"Activity\" OR app CONTAINS[cd] \"Activity\" OR "
              "pid CONTAINS[cd] \"Activity\" OR tid CONTAINS[cd] \"Activity\" OR note CONTAINS[cd] \"Activity\"");

    // Four characters: a plain search for the whole text.
    EXPECT_TRUE(FilterComposer::searchFilter("p: x").filter.toString().startsWith("name CONTAINS[cd] \"p: x\" OR "));

    const Filter expr = FilterComposer::searchFilter("p: type ==[cd] 'E'").filter;
    EXPECT_EQ(expr.toString(), "type ==[cd] \"E\"");

    // A quote makes the plain search unparseable on purpose; a bad expression fails too.
    const FilterComposer::Outcome quote = FilterComposer::searchFilter("it's");
    EXPECT_TRUE(quote.failed() && quote.filter.isNull());
    EXPECT_TRUE(FilterComposer::searchFilter("p: type ==").failed());
}

TEST(FilterComposer, ActiveFilterAndsSelectedSavedFiltersAndSearch)
{
    const SavedFilters saved = defaults();
    const int errorRow = saved.rowForName("LogLevel Error");
    const int noteRow = saved.rowForName("Has Note");

    const FilterComposer::Outcome both = FilterComposer::activeFilter(saved, {noteRow, errorRow}, errorRow, "");
    EXPECT_EQ(both.filter.toString(), "note !=[cd] \"\" AND type IN[cd] \"E,F,A\""); // row order

    // With search text as well.
    EXPECT_EQ(FilterComposer::activeFilter(saved, {errorRow}, errorRow, "p: name == 'Net'").filter.toString(),
              "type IN[cd] \"E,F,A\" AND name == \"Net\"");

    // A single filter stands alone; row 0 selected means no saved filter.
    EXPECT_EQ(FilterComposer::activeFilter(saved, {errorRow}, errorRow, "").filter, saved.filter("LogLevel Error"));
    EXPECT_TRUE(FilterComposer::activeFilter(saved, {0, errorRow}, 0, "").filter.isNull());
    EXPECT_TRUE(FilterComposer::activeFilter(saved, {}, -1, "").filter.isNull());

    // A search that does not parse abandons the whole composition.
    EXPECT_TRUE(FilterComposer::activeFilter(saved, {errorRow}, errorRow, "don't").failed());

    EXPECT_EQ(FilterComposer::statusText(Filter()), "Filter: All Messages");
    EXPECT_EQ(FilterComposer::statusText(saved.filter("LogLevel Error")), "Filter: type IN[cd] \"E,F,A\"");
}

TEST(FilterComposer, QuickFilterAndCellFilters)
{
    EXPECT_EQ(FilterComposer::quickFilterSearchText("Type", "E"), "p: type ==[cd] 'E'");
    EXPECT_EQ(FilterComposer::quickFilterSearchText("TYPE", "W"), "p: type ==[cd] 'W'");
    EXPECT_EQ(FilterComposer::quickFilterSearchText("Tag", "ActivityManager"), "ActivityManager");
    // The quick filter's search text composes into a filter on that level.
    EXPECT_EQ(FilterComposer::searchFilter(FilterComposer::quickFilterSearchText("Type", "e")).filter.toString(),
              "type ==[cd] \"e\"");

    // From a cell any value works, quotes included: it is a constant, not text to parse.
    const Filter cell = FilterComposer::cellComparison("name", "it's \"x\"");
    EXPECT_EQ(cell.toString(), R"(name ==[cd] "it's \"x\"")");
    EXPECT_EQ(Filter::parse(cell.toString()), cell);
    EXPECT_EQ(FilterComposer::cellComparison("pid", "12", false).toString(), "pid !=[cd] \"12\"");
    EXPECT_EQ(FilterComposer::cellFilterName("Tag", "ActivityManager"), "Tag_ActivityManager");

    EXPECT_EQ(FilterComposer::columnTitle("name"), "Tag");
    EXPECT_EQ(FilterComposer::columnTitle("app"), "APP");
    EXPECT_EQ(FilterComposer::columnTitle("type"), "Type");
    EXPECT_EQ(FilterComposer::columnTitle("time"), QString());
}

TEST(FilterComposer, NarrowingASavedFilter)
{
    SavedFilters::Texts stored;
    SavedFilters saved = defaults({{}, [&stored](const SavedFilters::Texts &texts) { stored = texts; }});
    saved.save();
    const Filter first = saved.filter(saved.nameForRow(1));

    // Row 1 (and 0) are left alone on purpose.
    EXPECT_FALSE(FilterComposer::narrowSelectedFilter(saved, 1, "name", "Net", true).has_value());
    EXPECT_FALSE(FilterComposer::narrowSelectedFilter(saved, 0, "name", "Net", true).has_value());
    EXPECT_EQ(saved.filter(saved.nameForRow(1)), first);

    const int row = saved.rowForName("LogLevel Error");
    EXPECT_EQ(FilterComposer::narrowSelectedFilter(saved, row, "name", "Net", true).value_or(Filter()).toString(),
              "type IN[cd] \"E,F,A\" AND name ==[cd] \"Net\"");
    const std::optional<Filter> twice = FilterComposer::narrowSelectedFilter(saved, row, "pid", "9", false);
    ASSERT_TRUE(twice.has_value());
    EXPECT_EQ(twice->toString(), "type IN[cd] \"E,F,A\" AND name ==[cd] \"Net\" AND pid !=[cd] \"9\"");
    EXPECT_EQ(saved.filter("LogLevel Error"), *twice);

    // Saved under the same name.
    EXPECT_EQ(stored.value("LogLevel Error"), twice->toString());
    EXPECT_EQ(saved.count(), 7);

    // An OR filter is nested, not spliced.
    EXPECT_EQ(FilterComposer::narrowed(saved.filter("JSON"), "app", "a", true).toString(),
              "(" + saved.filter("JSON").toString() + ") AND app ==[cd] \"a\"");
}
