// SPDX-License-Identifier: MIT
#include "Scenes/LogTableController.h"

#include "Helpers/Settings.h"
#include "Scenes/SelectableTableView.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QApplication>
#include <QHeaderView>
#include <QImage>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

namespace {

QVector<LogEntry> makeEntries(quint64 first, int count)
{
    QVector<LogEntry> entries;
    for (int i = 0; i < count; ++i) {
        const quint64 idx = first + quint64(i);
        entries.append(LogEntry::create(idx, {QStringLiteral("01-23 14:05:06.789"), QStringLiteral("com.example"),
                                              QStringLiteral("1234"), QStringLiteral("-"), QStringLiteral("I"),
                                              QStringLiteral("Tag"), QStringLiteral(" line %1").arg(idx),
                                              QString()}));
    }
    return entries;
}

struct LogTableControllerTest : ::testing::Test {
    SelectableTableView table;
    std::unique_ptr<LogTableController> controller;
    std::unique_ptr<QAbstractItemModelTester> tester;

    void SetUp() override
    {
        Settings::remove(SettingsKey::defaultFontSize);
        Settings::remove(QString::fromLatin1(LogTableController::ColumnLayoutName));
        controller = std::make_unique<LogTableController>(&table);
        tester = std::make_unique<QAbstractItemModelTester>(controller->model(),
                                                            QAbstractItemModelTester::FailureReportingMode::Fatal);
        table.resize(700, 400);
        table.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&table));
    }
    void TearDown() override
    {
        tester.reset();
        controller.reset();
        Settings::remove(SettingsKey::defaultFontSize);
    }

    int visibleRows() const { return table.viewport()->height() / table.uniformRowHeight(); }
    QList<int> selectedRows() const
    {
        QList<int> rows;
        for (const QModelIndex &index : table.selectionModel()->selectedRows())
            rows.append(index.row());
        return rows;
    }
    void selectRowAsUser(int row)
    {
        table.selectionModel()->setCurrentIndex(controller->model()->index(row, 1),
                                                QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    }
};

} // namespace

TEST_F(LogTableControllerTest, ColumnsHaveTitlesWidthsAndTheIdxColumnHidden)
{
    const QHeaderView *header = table.horizontalHeader();
    EXPECT_TRUE(header->isSectionHidden(LogEntry::Idx));
    // The message is the last visible column and takes whatever width the window leaves.
    EXPECT_EQ(header->logicalIndex(header->count() - 1), LogEntry::Text);
    EXPECT_TRUE(header->stretchLastSection());
    EXPECT_GT(header->sectionSize(LogEntry::Time), header->sectionSize(LogEntry::Pid));
    EXPECT_EQ(controller->model()->headerData(LogEntry::Name, Qt::Horizontal).toString(), QStringLiteral("Tag"));
}

TEST_F(LogTableControllerTest, FontSizeCommandsStepStoreAndWrapToEleven)
{
    EXPECT_DOUBLE_EQ(controller->model()->appearance().fontPointSize(), 11.0);
    const int rowHeight11 = table.uniformRowHeight();
    controller->biggerFont();
    EXPECT_DOUBLE_EQ(controller->model()->appearance().fontPointSize(), 12.0);
    EXPECT_DOUBLE_EQ(Settings::value(SettingsKey::defaultFontSize).toDouble(), 12.0);
    EXPECT_GT(table.uniformRowHeight(), rowHeight11);
    controller->smallerFont();
    controller->smallerFont();
    EXPECT_DOUBLE_EQ(Settings::defaultFontSize(), 10.0);

    Settings::setValue(SettingsKey::defaultFontSize, 30.0f);
    controller->readSettings();
    controller->biggerFont();
    EXPECT_DOUBLE_EQ(controller->model()->appearance().fontPointSize(), 11.0);
    EXPECT_EQ(table.uniformRowHeight(), rowHeight11);

    Settings::setValue(SettingsKey::defaultFontSize, 1.0f);
    controller->readSettings();
    controller->smallerFont();
    EXPECT_DOUBLE_EQ(Settings::defaultFontSize(), 11.0);

    // A stored size outside the limits is used as it is until the first command.
    Settings::setValue(SettingsKey::defaultFontSize, 45.0f);
    controller->readSettings();
    EXPECT_DOUBLE_EQ(controller->model()->appearance().fontPointSize(), 45.0);
    EXPECT_GT(table.uniformRowHeight(), 2 * rowHeight11);
    controller->smallerFont();
    EXPECT_DOUBLE_EQ(controller->model()->appearance().fontPointSize(), 11.0);

    controller->biggerFont();
    controller->defaultFontSize();
    EXPECT_DOUBLE_EQ(Settings::defaultFontSize(), 11.0);
}

TEST_F(LogTableControllerTest, FollowsTheNewestLineUntilTheUserScrollsUp)
{
    QSignalSpy follow(controller.get(), &LogTableController::scrollToBottomChanged);
    controller->changeScrollToBottom(true);
    ASSERT_EQ(follow.count(), 1);
    controller->changeScrollToBottom(true); // no change, no signal
    EXPECT_EQ(follow.count(), 1);

    QVector<LogEntry> log = makeEntries(0, 300);
    controller->showRows(log);
    EXPECT_EQ(table.lastVisibleRow(), 299);
    log += makeEntries(300, 50);
    controller->showRows(log);
    EXPECT_EQ(table.lastVisibleRow(), 349);
    EXPECT_TRUE(controller->scrollToBottom());

    // Scrolling up out of the last five rows turns following off; new lines then leave the view alone.
    table.verticalScrollBar()->setValue(table.verticalScrollBar()->value() - 10 * table.uniformRowHeight());
    EXPECT_FALSE(controller->scrollToBottom());
    EXPECT_EQ(follow.count(), 2);
    const int first = table.firstVisibleRow();
    log += makeEntries(350, 50);
    controller->showRows(log);
    EXPECT_EQ(table.firstVisibleRow(), first);

    // Back within the last five rows turns it on again.
    table.verticalScrollBar()->setValue(table.verticalScrollBar()->maximum() - 2 * table.uniformRowHeight());
    EXPECT_GE(table.lastVisibleRow(), 395);
    EXPECT_TRUE(controller->scrollToBottom());

    controller->toggleAutoFollow();
    EXPECT_FALSE(controller->scrollToBottom());
    controller->toggleAutoFollow();
    EXPECT_TRUE(controller->scrollToBottom());
    EXPECT_EQ(table.lastVisibleRow(), 399);
}

TEST_F(LogTableControllerTest, SelectingTheLastRowFollowsAndAnyOtherRowStops)
{
    controller->changeScrollToBottom(true);
    controller->showRows(makeEntries(0, 100));
    selectRowAsUser(40);
    EXPECT_FALSE(controller->scrollToBottom());
    ASSERT_TRUE(controller->selectedLogMessage());
    EXPECT_EQ(controller->selectedLogMessage()->value, 40u);
    selectRowAsUser(99);
    EXPECT_TRUE(controller->scrollToBottom());
    table.clearSelection();
    EXPECT_FALSE(controller->selectedLogMessage());
}

TEST_F(LogTableControllerTest, FilterChangeRestoresAndCentresTheSelectedEntry)
{
    const QVector<LogEntry> all = makeEntries(0, 400);
    controller->showRows(all);
    selectRowAsUser(150);
    controller->changeScrollToBottom(true); // a filter-list click turns following on

    QVector<LogEntry> even;
    for (const LogEntry &entry : all)
        if (entry.idx() % 2 == 0)
            even.append(entry);
    controller->setFilterUpdating(true);
    controller->showRows(even);
    EXPECT_FALSE(controller->filterUpdating());

    EXPECT_EQ(selectedRows(), QList<int>({75}));
    const int rowCentre = table.rowViewportPosition(75) + table.uniformRowHeight() / 2;
    EXPECT_NEAR(rowCentre, table.viewport()->height() / 2, table.uniformRowHeight());
    // The restored row is far from the end, so following is off again.
    EXPECT_FALSE(controller->scrollToBottom());
    EXPECT_EQ(controller->selectedLogMessage()->value, 150u);

    // An entry the new filter hides: nothing is selected, the remembered entry stays.
    QVector<LogEntry> odd;
    for (const LogEntry &entry : all)
        if (entry.idx() % 2 == 1)
            odd.append(entry);
    controller->setFilterUpdating(true);
    controller->showRows(odd);
    EXPECT_TRUE(selectedRows().isEmpty());
    EXPECT_EQ(controller->selectedLogMessage()->value, 150u);

    // Back to everything: found again.
    controller->setFilterUpdating(true);
    controller->showRows(all);
    EXPECT_EQ(selectedRows(), QList<int>({150}));
}

TEST_F(LogTableControllerTest, PruneKeepsTheReadersLineInViewWhenNotFollowing)
{
    QVector<LogEntry> log = makeEntries(0, 500);
    controller->showRows(log);
    table.verticalScrollBar()->setValue(table.verticalHeader()->sectionPosition(200));
    ASSERT_FALSE(controller->scrollToBottom());
    ASSERT_EQ(table.firstVisibleRow(), 200);

    // The buffer dropped 100 entries and 20 arrived.
    QVector<LogEntry> next = log.mid(100);
    next += makeEntries(500, 20);
    controller->showRows(next);
    EXPECT_EQ(table.firstVisibleRow(), 100);
    EXPECT_EQ(controller->model()->idxAt(ViewRow{table.firstVisibleRow()})->value, 200u);
}

TEST_F(LogTableControllerTest, PruneCallbacksBringTheOldTopRowBack)
{
    QVector<LogEntry> log = makeEntries(0, 500);
    controller->showRows(log);
    table.verticalScrollBar()->setValue(table.verticalHeader()->sectionPosition(300));
    ASSERT_FALSE(controller->scrollToBottom());

    controller->willPruneLogEvents();
    // A datasource that announces its prunes: the model reset moves the view to the top.
    controller->model()->setRows(makeEntries(1000, 400));
    table.verticalScrollBar()->setValue(0);
    controller->didPruneLogEvents();
    EXPECT_TRUE(QTest::qWaitFor([&] { return table.firstVisibleRow() > 0; }, 2000));
    // New row = 400 - 500 + 300 = 200, scrolled into view.
    EXPECT_LE(table.firstVisibleRow(), 200);
    EXPECT_GE(table.lastVisibleRow(), 200);
}

TEST_F(LogTableControllerTest, SearchTextIsMarkedInYellow)
{
    controller->showRows(makeEntries(0, 5));
    auto yellowPixels = [&] {
        const QImage image = table.viewport()->grab().toImage();
        int count = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                count += image.pixelColor(x, y) == QColor(255, 255, 0);
        return count;
    };
    EXPECT_EQ(yellowPixels(), 0);
    controller->setSearchText(QStringLiteral("EXAMPLE")); // in the app column, which is in view
    EXPECT_GT(yellowPixels(), 20);
    controller->setSearchText(QString());
    EXPECT_EQ(yellowPixels(), 0);
}

TEST_F(LogTableControllerTest, FontsChangedReadsTheSettingsAgain)
{
    Settings::setValue(SettingsKey::logErrorBold, true);
    Settings::setValue(SettingsKey::logErrorColor, QStringLiteral("#112233"));
    controller->fontsChanged();
    EXPECT_TRUE(controller->model()->appearance().font(u"E").bold());
    EXPECT_EQ(controller->model()->appearance().color(u"E"), QColor(0x11, 0x22, 0x33));
    Settings::remove(SettingsKey::logErrorBold);
    Settings::remove(SettingsKey::logErrorColor);
    controller->fontsChanged();
    EXPECT_FALSE(controller->model()->appearance().font(u"E").bold());
}
