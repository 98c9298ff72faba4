// SPDX-License-Identifier: MIT
// Save, Save as Text and Open through the real (non-native) file dialogs: the written text, the
// visible-rows check box, reading back, the question over unsaved lines, the numbering of an opened file,
// and failures that tell the user (every field's round trip is LogDocumentTest's).
#include "Scenes/LogDocumentController.h"

#include "Helpers/Settings.h"
#include "Log/LogDocument.h"
#include "Scenes/LogTableController.h"
#include "Scenes/MainWindow.h"
#include "Scenes/SavedFiltersController.h"
#include "Session/LogDatasource.h"
#include "Session/ReconnectPolicy.h"
#include "support/Dialogs.h"
#include "support/LogCapture.h"
#include "support/LogDatasourceRecorder.h"
#include "support/TestEntries.h"
#include "support/SessionTestData.h"
#include "support/TestFiles.h"

#include <QCheckBox>
#include <QFile>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <gtest/gtest.h>

namespace {

QByteArray readAll(const QString &path)
{
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
    return file.readAll();
}

// Every field but idx, one line per entry; `textPrefix` before each text.
QStringList rowsOf(const QList<LogEntry> &entries, const QString &textPrefix = {})
{
    QStringList out;
    for (const LogEntry &e : entries) {
        QStringList fields = fieldsOf(e).split(u'|');
        fields[LogEntry::Text - LogEntry::Time].prepend(textPrefix);
        out << fields.join(u'|');
    }
    return out;
}

// The table shows every update, as the application controller has it; nothing else is needed here.
class LogDocumentControllerTest : public ::testing::Test, public LogDatasourceRecorder
{
protected:
    void onLogUpdated() override { table.showRows(datasource.getDataFiltered()); }

    void SetUp() override
    {
        Settings::remove(SettingsKey::predicates);
        ASSERT_TRUE(dir.isValid());
        filters.readSettings();
        datasource.setDelegate(this);
        QObject::connect(&datasource, &LogDatasource::logDataUpdated, &window, [this] { onLogUpdated(); });
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));
    }
    void TearDown() override
    {
        datasource.setDelegate(nullptr);
        Settings::remove(SettingsKey::predicates);
    }

    // Lines of two processes, numbered by the datasource; one carries a note (every field's round trip is
    // LogDocumentTest's).
    QList<LogEntry> fillLog()
    {
        QList<LogEntry> entries;
        for (int i = 0; i < 4; ++i)
            entries << LogEntry::create(datasource.getIndex(),
                                        {"01-23 14:05:06.789", "", i < 2 ? "1234" : "4321", "5678", "I", "Tag",
                                         QStringLiteral(" line %1").arg(i), i == 1 ? "a note" : ""});
        datasource.setLogDataFromFile(entries);
        EXPECT_TRUE(waitForRows(entries));
        return entries;
    }
    bool waitForRows(const QList<LogEntry> &entries)
    {
        return QTest::qWaitFor([&] { return rowsOf(shown()) == rowsOf(entries); }, 5000);
    }
    QList<LogEntry> shown() const { return {table.model()->rows().cbegin(), table.model()->rows().cend()}; }
    // Runs a save command through its dialog; the path written, or empty when it failed.
    QString save(void (LogDocumentController::*command)(), const QString &typed, bool visibleOnly)
    {
        QSignalSpy saved(&documents, &LogDocumentController::fileSaved);
        (documents.*command)();
        EXPECT_TRUE(dialogs::choose(&window, typed, [&](QFileDialog *dialog) {
            auto *check = dialog->findChild<QCheckBox *>(QStringLiteral("visibleRowsOnly"));
            ASSERT_NE(check, nullptr);
            check->setChecked(visibleOnly);
        }));
        if (!saved.wait(5000))
            return {};
        return saved.front().at(1).toBool() ? saved.front().at(0).toString() : QString();
    }
    bool open(const QString &path)
    {
        QSignalSpy opened(&documents, &LogDocumentController::fileOpened);
        documents.openFile(path);
        return opened.wait(5000) && opened.front().at(1).toBool();
    }

    QTemporaryDir dir;
    MainWindow window;
    LogDatasource datasource;
    LogTableController table{window.logTable()};
    SavedFiltersController filters{&window, &datasource, &table};
    ReconnectPolicy reconnect;
    LogDocumentController documents{&window, &datasource, &table, &filters, &reconnect};
};

} // namespace

TEST_F(LogDocumentControllerTest, SavedRowsReadBackWithEveryField)
{
    const QList<LogEntry> all = fillLog();
    window.searchField()->setText("4321");
    const QList<LogEntry> visible = {all[2], all[3]};
    ASSERT_TRUE(waitForRows(visible));

    // Save proposes "quillfern" first, Save as Text "log"; the check box writes the shown rows only.
    const struct
    {
        void (LogDocumentController::*command)();
        QString typed;
        bool visibleOnly;
        QString written;
        QList<LogEntry> rows;
    } cases[] = {
        {&LogDocumentController::saveDocument, "whole", false, "whole.quillfern", all},
        {&LogDocumentController::saveDocumentAsText, "whole", false, "whole.log", all},
        {&LogDocumentController::saveDocumentAsText, "shown.txt", true, "shown.txt", visible},
    };
    for (const auto &c : cases) {
        const QString path = save(c.command, dir.filePath(c.typed), c.visibleOnly);
        EXPECT_EQ(path, dir.filePath(c.written));
        EXPECT_EQ(readAll(path), LogDocument::savedText(c.rows)) << c.written.toStdString();
    }

    // Reopened (a "quillfern" file that is text is read as text), every field comes back.
    window.searchField()->clear();
    ASSERT_TRUE(open(dir.filePath("whole.quillfern")));
    EXPECT_EQ(window.windowTitle(), dir.filePath("whole.quillfern"));
    // A saved and reopened text gains the blank after the tag's colon.
    EXPECT_TRUE(QTest::qWaitFor([&] { return rowsOf(shown()) == rowsOf(all, " "); }, 5000));
}

TEST_F(LogDocumentControllerTest, FailuresAlertAndADictionaryDocumentIsNotLoaded)
{
    // Larger than any file the viewer holds (sparse, so it costs no disk; a folder is LogDocumentTest's):
    // the log is cleared, the title kept.
    const QString huge = dir.filePath("huge.log");
    ASSERT_TRUE(QFile(writeTestFile(huge, {})).resize(LogDocument::MaxFileSize + 1));
    fillLog();
    window.setWindowTitle("device");
    EXPECT_FALSE(open(huge));
    const QString alert = dialogs::answer(&window);
    EXPECT_TRUE(alert.startsWith("The file could not be opened.")) << alert.toStdString();
    EXPECT_TRUE(alert.contains(" is too large to open")) << alert.toStdString();
    EXPECT_TRUE(QTest::qWaitFor([&] { return table.model()->rowCount() == 0; }, 3000));
    EXPECT_EQ(datasource.logEventCount(), 0u);
    EXPECT_EQ(window.windowTitle(), "device");

    // A save into a folder that is gone (nothing can be created in it, not even by root) keeps the log.
    const QList<LogEntry> refilled = fillLog();
    QSignalSpy saved(&documents, &LogDocumentController::fileSaved);
    documents.writeLogFile(dir.filePath("gone/out.log"), false);
    ASSERT_TRUE(saved.wait(5000));
    EXPECT_FALSE(saved.front().at(1).toBool());
    EXPECT_TRUE(dialogs::answer(&window).startsWith("The log could not be saved."));
    EXPECT_EQ(rowsOf(datasource.getDataAll()), rowsOf(refilled));

    // A dictionary document is recognised and logged once, but not loaded.
    const QString plist = writeTestFile(dir.filePath("saved.quillfern"),
                                        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                                        "<key>logdata</key><array><dict/><dict/><dict/></array></dict></plist>\n");
    LogCapture log;
    documents.openFile(plist);
    EXPECT_EQ(log.count(QStringLiteral("dictionary format:%1, lines:3").arg(plist)), 1);
    EXPECT_EQ(rowsOf(datasource.getDataAll()), rowsOf(refilled));
}

TEST_F(LogDocumentControllerTest, OpeningAFileOverUnsavedLiveLinesAsksFirst)
{
    QString text;
    for (int i = 0; i < 3; ++i)
        text += logcatLine(QStringLiteral("14:05:0%1.789").arg(i), 1234, 5678, "W", "Tag", "file line");
    const QString file = writeTestFile(dir.filePath("other.log"), text.toUtf8());
    const auto appendLive = [&](int count) {
        for (int i = 0; i < count; ++i)
            datasource.appendRow(
                LogEntry::create(datasource.getIndex(), {"01-23 14:05:01.789", "", "1", "2", "I", "Live",
                                                         QStringLiteral("live %1").arg(i), ""}));
    };
    const auto openChosen = [&](const QString &answer) {
        documents.openLogcatFile();
        EXPECT_TRUE(dialogs::choose(&window, file));
        return dialogs::answer(&window, answer);
    };
    QSignalSpy opened(&documents, &LogDocumentController::fileOpened);
    datasource.logMessage("Started logging"); // the program's own lines are not the user's to lose
    appendLive(1201);
    ASSERT_EQ(documents.unsavedLineCount(), 1201);

    // Cancel keeps everything.
    EXPECT_EQ(openChosen("Cancel"), "The log holds 1,201 lines that were not saved.\n"
                                    "Opening other.log replaces the log. Save it first?");
    EXPECT_EQ(datasource.logEventCount(), 1202u);
    EXPECT_TRUE(opened.isEmpty());

    // Save writes the whole log, then opens the file; the file's lines need no saving.
    const QList<LogEntry> live = datasource.getDataAll();
    openChosen("Save");
    EXPECT_TRUE(dialogs::choose(&window, dir.filePath("kept.quillfern")));
    ASSERT_TRUE(opened.wait(5000));
    EXPECT_EQ(readAll(dir.filePath("kept.quillfern")), LogDocument::savedText(live));
    EXPECT_EQ(documents.unsavedLineCount(), 0);
    // The file's lines replace the log on the datasource's pool; a line added before that would go too.
    ASSERT_TRUE(QTest::qWaitFor([&] { return datasource.getDataAll().size() == 3; }, 5000));
    // They are numbered after everything before them, and the next line after them: none numbered twice.
    EXPECT_GT(datasource.getDataAll().front().idx(), live.back().idx());

    // Only lines newer than the last save or file count; Discard opens without saving.
    appendLive(1);
    EXPECT_GT(datasource.getDataAll().back().idx(), datasource.getDataAll()[2].idx());
    opened.clear();
    EXPECT_TRUE(openChosen("Discard").startsWith("The log holds 1 line that was not saved."));
    ASSERT_TRUE(opened.wait(5000));
    documents.openLogcatFile();
    EXPECT_TRUE(dialogs::choose(&window, file));
    ASSERT_TRUE(opened.wait(5000)) << "nothing unsaved: no question";
}
