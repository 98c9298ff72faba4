// SPDX-License-Identifier: MIT
#include "Filters/SavedFilters.h"
#include "support/PropertyLists.h"
#include "support/QtPrinters.h"
#include "support/TestFiles.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <QFile>
#include <QRandomGenerator>
#include <QTemporaryDir>

namespace {

class SavedFiltersTest : public ::testing::Test
{
protected:
    QString writeFile(const QString &name, const QByteArray &data) { return writeTestFile(m_dir.filePath(name), data); }
    // Filters kept in `stored`, which holds nothing until the first write.
    SavedFilters::Storage storage()
    {
        return {[this] { return stored; }, [this](const SavedFilters::Texts &texts) { stored = texts; }};
    }

    std::optional<SavedFilters::Texts> stored;
    QTemporaryDir m_dir;
};

} // namespace

TEST_F(SavedFiltersTest, DefaultsOnFirstRunOnlyInPrintedForm)
{
    SavedFilters saved(storage());
    const SavedFilters::LoadResult r = saved.load();
    EXPECT_TRUE(r.ok());
    EXPECT_TRUE(r.createdDefaults);
    EXPECT_EQ(saved.sortedNames(), QStringList({"Has Note", "JSON", "LogLevel Debug", "LogLevel Error", "LogLevel Info",
                                                "LogLevel Verbose", "LogLevel Warn"}));
    EXPECT_EQ(stored.value_or(SavedFilters::Texts()).value("LogLevel Error"), "type IN[cd] \"E,F,A\"");
    for (const auto &[name, text] : SavedFilters::defaultFilters())
        EXPECT_EQ(saved.filter(name), Filter::parse(text)) << name.toStdString();

    // Rows: 0 is no filter, r is the r-th sorted name.
    EXPECT_EQ(saved.nameForRow(0), QString());
    EXPECT_EQ(saved.nameForRow(1), "Has Note");
    EXPECT_EQ(saved.nameForRow(8), QString());
    EXPECT_EQ(saved.rowForName("JSON"), 2);
    EXPECT_EQ(saved.rowForName("nope"), -1);
    EXPECT_EQ(saved.namesForRows({5, 0, 2, 2}), QStringList({"JSON", "LogLevel Info"}));

    // A second launch reads what is stored and creates nothing.
    SavedFilters again(storage());
    EXPECT_FALSE(again.load().createdDefaults);
    EXPECT_EQ(again.sortedNames(), saved.sortedNames());

    // An emptied list stays empty.
    saved.remove(saved.sortedNames());
    saved.save();
    SavedFilters next(storage());
    EXPECT_FALSE(next.load().createdDefaults);
    EXPECT_EQ(next.count(), 0);
}

TEST_F(SavedFiltersTest, CaseInsensitiveOrderAndUnusedNames)
{
    SavedFilters saved;
    for (const char *name : {"beta", "Alpha", "alpha", "Gamma"})
        saved.setFilter(name, Filter::parse("text == 'x'"));
    EXPECT_EQ(saved.sortedNames(), QStringList({"Alpha", "alpha", "beta", "Gamma"}));

    EXPECT_EQ(saved.newUnusedPredicateName(), "unnamed");
    saved.setFilter("unnamed-1", Filter::parse("text == 'x'"));
    EXPECT_EQ(saved.newUnusedPredicateName(), "unnamed"); // only unnamed-1 taken
    saved.setFilter("unnamed", Filter::parse("text == 'x'"));
    EXPECT_EQ(saved.newUnusedPredicateName(), "unnamed-2");
    saved.setFilter("LogLevel Error", Filter::parse("text == 'x'"));
    EXPECT_EQ(saved.newUnusedPredicateName("LogLevel Error"), "LogLevel Error-1");
    EXPECT_EQ(saved.newUnusedPredicateName("fresh"), "fresh");
}

TEST_F(SavedFiltersTest, AStoredTextThatDoesNotParseStopsLoadingThere)
{
    stored = SavedFilters::Texts{{"a", "text == \"1\""}, {"b", "text =="}, {"c", "text == \"3\""}};
    SavedFilters saved(storage());
    const SavedFilters::LoadResult r = saved.load();
    EXPECT_FALSE(r.ok());
    EXPECT_TRUE(r.error.contains("\"b\""));
    EXPECT_EQ(saved.sortedNames(), QStringList({"a"}));
}

TEST_F(SavedFiltersTest, ExportThenImportRoundTrip)
{
    SavedFilters source;
    source.setFilter("errors", Filter::parse("type IN[cd] 'E,F,A'"));
    source.setFilter("quotes \"&<xml>", Filter::parse(R"(text CONTAINS[cd] 'a"b\\c<&>' OR note != '')"));
    source.setFilter("skipped", Filter::parse("app == 'x'"));
    const QString path = m_dir.filePath("mine.filters");
    ASSERT_TRUE(source.exportFilters(path, source.namesForRows({0, 1, 2})));

    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray xml = file.readAll();
    EXPECT_TRUE(xml.startsWith("<?xml")) << xml.constData();
    EXPECT_TRUE(xml.contains("<string>type IN[cd] &quot;E,F,A&quot;</string>") ||
                xml.contains("<string>type IN[cd] \"E,F,A\"</string>"));

    SavedFilters target(storage());
    target.setFilter("errors", Filter::parse("text == 'old'"));
    target.setFilter("kept", Filter::parse("text == 'k'"));
    const SavedFilters::ImportPlan plan = target.readImport(path);
    EXPECT_EQ(plan.existing, QStringList{"errors"}); // the window asks about these
    const SavedFilters::ImportResult r = target.applyImport(plan, true);
    EXPECT_EQ(r.imported, QStringList({"quotes \"&<xml>", "errors"})) << r.error.toStdString();
    EXPECT_EQ(target.filter("errors"), source.filter("errors"));
    EXPECT_EQ(target.filter("quotes \"&<xml>"), source.filter("quotes \"&<xml>"));
    EXPECT_FALSE(target.contains("skipped"));
    EXPECT_TRUE(target.contains("kept"));
    EXPECT_EQ(stored.value_or(SavedFilters::Texts()).keys(), QStringList({"errors", "kept", "quotes \"&<xml>"}));

    EXPECT_FALSE(source.exportFilters(m_dir.filePath("no/such/dir/x.filters"), {"errors"}));
}

TEST_F(SavedFiltersTest, ImportTakesEveryTextThatParsesAndTellsWhatItSkipped)
{
    // Import order follows the texts; a bad text anywhere skips only itself.
    const std::pair<const char *, const char *> texts[] = {{"third", "zz =="},
                                                           {"first", "app == 'a'"},
                                                           {"bad", "AAA"},
                                                           {"second", "body == 'b'"},
                                                           {"mine", "text == 'theirs'"}};
    const QString bin = writeFile("b.filters", stringDictionary(texts, true));
    SavedFilters saved(storage());
    saved.setFilter("mine", Filter::parse("text == 'mine'"));
    const SavedFilters::ImportPlan plan = saved.readImport(bin);
    EXPECT_EQ(plan.existing, QStringList{"mine"});
    ASSERT_EQ(plan.invalid.size(), 2);
    EXPECT_EQ(plan.invalid[0].first, "bad");
    EXPECT_FALSE(plan.invalid[0].second.isEmpty());

    // Keeping the user's own: the same-named one is skipped and says why.
    const SavedFilters::ImportResult r = saved.applyImport(plan, false);
    EXPECT_EQ(r.imported, QStringList({"first", "second"}));
    EXPECT_EQ(saved.filter("mine"), Filter::parse("text == 'mine'"));
    EXPECT_EQ(saved.sortedNames(), QStringList({"first", "mine", "second"}));
    EXPECT_EQ(stored.value_or(SavedFilters::Texts()).size(), 3);
    const QString summary = r.summary();
    EXPECT_TRUE(summary.startsWith("Imported 2 filters.\n\nSkipped 3:")) << summary.toStdString();
    for (const char *name : {"\nbad: ", "\nthird: ", "\nmine: a filter of that name exists and was kept"})
        EXPECT_TRUE(summary.contains(name)) << name;

    // Replacing: the file's version wins.
    EXPECT_EQ(saved.applyImport(saved.readImport(bin), true).imported, QStringList({"first", "second", "mine"}));
    EXPECT_EQ(saved.filter("mine"), Filter::parse("text == 'theirs'"));
}

TEST_F(SavedFiltersTest, FilesThatAreNotFilterListsImportNothing)
{
    // Which shapes are refused is FilterFile's business; here: the refusal reaches the user and changes nothing.
    const QList<QByteArray> notFilters = {QByteArray(), "01-23 14:05:06.789  1 1 I T: x\n"};
    int n = 0;
    for (const QByteArray &data : notFilters) {
        SavedFilters saved(storage());
        saved.setFilter("mine", Filter::parse("text == 'm'"));
        const SavedFilters::ImportResult r =
            saved.applyImport(saved.readImport(writeFile(QString("n%1.filters").arg(n++), data)), true);
        EXPECT_TRUE(r.error.contains("Not a filters file")) << r.error.toStdString();
        EXPECT_EQ(r.summary(), r.error);
        EXPECT_EQ(saved.sortedNames(), QStringList({"mine"}));
    }
    EXPECT_FALSE(stored);

    SavedFilters saved;
    // Nothing there, a folder, a pipe: refused without blocking.
    const QString fifo = m_dir.filePath("pipe.filters");
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    for (const QString &path : {m_dir.filePath("absent.filters"), m_dir.path(), fifo})
        EXPECT_TRUE(saved.readImport(path).error.startsWith("Cannot read")) << path.toStdString();
}

TEST_F(SavedFiltersTest, RandomAndDamagedPropertyListsNeverCrash)
{
    QRandomGenerator rng(99);
    QMap<QString, QString> texts;
    for (const auto &[name, text] : SavedFilters::defaultFilters())
        texts.insert(name, Filter::parse(text).toString());
    const QByteArray xml = SavedFilters::toPropertyList(texts);
    const QByteArray bin = stringDictionary(texts.asKeyValueRange(), true);
    ASSERT_TRUE(SavedFilters::fromPropertyList(xml).has_value());
    ASSERT_EQ(*SavedFilters::fromPropertyList(bin), texts);

    int accepted = 0;
    // Every truncation of both encodings.
    for (const QByteArray &whole : {xml, bin}) {
        for (qsizetype len = 0; len < whole.size(); ++len) {
            QString error;
            const auto r = SavedFilters::fromPropertyList(whole.left(len), &error);
            if (r) {
                ++accepted;
                for (auto it = r->cbegin(); it != r->cend(); ++it)
                    EXPECT_EQ(texts.value(it.key()), it.value()); // never invents a filter
            } else {
                EXPECT_FALSE(error.isEmpty());
            }
        }
    }
    // Random bytes, with and without the binary magic, and random byte flips of valid files.
    for (int i = 0; i < 3000; ++i) {
        QByteArray data;
        if (i % 3 == 0) {
            data = QByteArray(int(rng.bounded(300)), Qt::Uninitialized);
            for (char &b : data)
                b = char(rng.bounded(256));
            if (i % 2)
                data.prepend("bplist00");
        } else {
            data = (i % 3 == 1) ? xml : bin;
            const int flips = int(rng.bounded(1, 6));
            for (int f = 0; f < flips; ++f)
                data[rng.bounded(int(data.size()))] = char(rng.bounded(256));
        }
        QString error;
        const auto r = SavedFilters::fromPropertyList(data, &error);
        EXPECT_TRUE(r.has_value() || !error.isEmpty());
    }
    // Only cuts in the trailing white space are still whole files; nothing else is accepted.
    EXPECT_LT(accepted, 40);
}
