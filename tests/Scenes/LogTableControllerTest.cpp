// SPDX-License-Identifier: MIT
#include "Scenes/LogTableController.h"

#include "Helpers/Settings.h"
#include "Scenes/SelectableTableView.h"
#include "support/TestEntries.h"

#include <gtest/gtest.h>

#include <QAbstractItemModelTester>
#include <QHeaderView>
#include <QImage>
#include <QScrollBar>
#include <QSignalSpy>
#include <QTest>

namespace {

struct LogTableControllerTest : ::testing::Test
{
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
    void TearDown() override { Settings::remove(SettingsKey::defaultFontSize); }

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
    EXPECT_EQ(controller->model()->headerData(LogEntry::Name, Qt::Horizontal).toString(), "Tag");

    // Readable by default: the level one letter wide, the note column narrow until a new view brings a
    // note, the whole message a tooltip.
    EXPECT_LT(header->sectionSize(LogEntry::Type), header->sectionSize(LogEntry::Pid));
    const int narrowNote = header->sectionSize(LogEntry::Note);
    EXPECT_LE(narrowNote, header->sectionSize(LogEntry::Type));
    const QString message = QStringLiteral(" a message longer than its column").repeated(8);
    controller->showRows(testEntries(0, 2));
    controller->showRows({testEntry({.idx = 5, .text = message, .note = "seen"})}); // not a continuation
    EXPECT_GT(header->sectionSize(LogEntry::Note), 3 * narrowNote);
    EXPECT_EQ(controller->model()->index(0, LogEntry::Text).data(Qt::ToolTipRole).toString(), message);
    EXPECT_FALSE(controller->model()->index(0, LogEntry::Pid).data(Qt::ToolTipRole).isValid());
}

TEST_F(LogTableControllerTest, FontSizeCommandsStepStoreAndWrapToEleven)
{
    const int rowHeight11 = table.uniformRowHeight();
    // A stored size outside the limits is used as it is until the first command.
    Settings::setValue(SettingsKey::defaultFontSize, 45.0f);
    controller->fontsChanged(); // as the preferences announce a change
    EXPECT_DOUBLE_EQ(controller->model()->appearance().fontPointSize(), 45.0);
    EXPECT_GT(table.uniformRowHeight(), 2 * rowHeight11);

    using Command = void (LogTableController::*)();
    const struct
    {
        float stored; // 0: as the step before left it
        Command command;
        double size;
    } steps[] = {
        // The stored size is read, stepped (the wrap past the limits is LogAppearanceTest's) and stored.
        {45, &LogTableController::smallerFont, 11},
        {11, &LogTableController::biggerFont, 12},
        {0, &LogTableController::smallerFont, 11},
        {13, &LogTableController::defaultFontSize, 11},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.size);
        if (step.stored) {
            Settings::setValue(SettingsKey::defaultFontSize, step.stored);
            controller->readSettings();
        }
        (controller.get()->*step.command)();
        EXPECT_DOUBLE_EQ(controller->model()->appearance().fontPointSize(), step.size);
        EXPECT_DOUBLE_EQ(Settings::defaultFontSize(), step.size);
        EXPECT_EQ(table.uniformRowHeight() > rowHeight11, step.size > 11);
    }
}

TEST_F(LogTableControllerTest, FollowsTheNewestLineUntilTheUserScrollsUpOrSelectsAnotherRow)
{
    QSignalSpy follow(controller.get(), &LogTableController::scrollToBottomChanged);
    controller->changeScrollToBottom(true);
    ASSERT_EQ(follow.count(), 1);
    controller->changeScrollToBottom(true); // no change, no signal
    EXPECT_EQ(follow.count(), 1);

    QList<LogEntry> log = testEntries(0, 300);
    controller->showRows(log);
    EXPECT_EQ(table.lastVisibleRow(), 299);
    log += testEntries(300, 50);
    controller->showRows(log);
    EXPECT_EQ(table.lastVisibleRow(), 349);

    // Scrolling up out of the last five rows turns following off; new lines then leave the view alone.
    table.verticalScrollBar()->setValue(table.verticalScrollBar()->value() - 10 * table.uniformRowHeight());
    EXPECT_FALSE(controller->scrollToBottom());
    EXPECT_EQ(follow.count(), 2);
    const int first = table.firstVisibleRow();
    log += testEntries(350, 50);
    controller->showRows(log);
    EXPECT_EQ(table.firstVisibleRow(), first);

    // Back within the last five rows turns it on again.
    table.verticalScrollBar()->setValue(table.verticalScrollBar()->maximum() - 2 * table.uniformRowHeight());
    EXPECT_TRUE(controller->scrollToBottom());

    controller->toggleAutoFollow();
    EXPECT_FALSE(controller->scrollToBottom());
    controller->toggleAutoFollow();
    EXPECT_TRUE(controller->scrollToBottom());
    EXPECT_EQ(table.lastVisibleRow(), 399);

    // Selecting the last row follows, any other row stops.
    selectRowAsUser(40);
    EXPECT_FALSE(controller->scrollToBottom());
    EXPECT_EQ(controller->selectedLogMessage().value_or(EntryIdx{}).value, 40u);
    selectRowAsUser(399);
    EXPECT_TRUE(controller->scrollToBottom());
    table.clearSelection();
    EXPECT_FALSE(controller->selectedLogMessage());
}

TEST_F(LogTableControllerTest, FilterChangeRestoresAndCentresTheSelectedEntry)
{
    const QList<LogEntry> all = testEntries(0, 400);
    controller->showRows(all);
    selectRowAsUser(150);
    controller->changeScrollToBottom(true); // a filter-list click turns following on

    QList<LogEntry> even, odd;
    for (const LogEntry &e : all)
        (e.idx() % 2 ? odd : even) << e;
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
    const QList<LogEntry> log = testEntries(0, 500);
    controller->showRows(log);
    table.verticalScrollBar()->setValue(table.verticalHeader()->sectionPosition(200));
    ASSERT_FALSE(controller->scrollToBottom());
    ASSERT_EQ(table.firstVisibleRow(), 200);

    // The buffer dropped 100 entries and 20 arrived.
    controller->showRows(log.mid(100) + testEntries(500, 20));
    EXPECT_EQ(table.firstVisibleRow(), 100);
    EXPECT_EQ(controller->model()->idxAt(ViewRow{table.firstVisibleRow()})->value, 200u);

    // A datasource that announces its prunes: the model reset moves the view to the top, the callbacks
    // bring the old top row back (400 - 420 + 100 = 80) into view.
    controller->willPruneLogEvents();
    controller->model()->setRows(testEntries(1000, 400));
    table.verticalScrollBar()->setValue(0);
    controller->didPruneLogEvents();
    EXPECT_TRUE(QTest::qWaitFor([&] { return table.firstVisibleRow() > 0; }, 2000));
    EXPECT_LE(table.firstVisibleRow(), 80);
    EXPECT_GE(table.lastVisibleRow(), 80);
}

TEST_F(LogTableControllerTest, SearchTextIsMarkedInYellow)
{
    controller->showRows(testEntries(0, 5));
    auto yellowPixels = [&] {
        const QImage image = table.viewport()->grab().toImage();
        int count = 0;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                count += image.pixelColor(x, y) == QColor(255, 255, 0);
        return count;
    };
    EXPECT_EQ(yellowPixels(), 0);
    controller->setSearchText(QStringLiteral("TAG")); // in the tag column, which is in view
    // Clearing the mark is LogTableModelTest's.
    EXPECT_GT(yellowPixels(), 20);
}
