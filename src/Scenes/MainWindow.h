// SPDX-License-Identifier: MIT
#pragma once

#include "Session/ConnectionStatus.h"

#include <QMainWindow>
#include <QPointer>

#include <functional>

class FilterListView;
class QAction;
class QFileDialog;
class QLabel;
class QLineEdit;
class QMessageBox;
class QProgressBar;
class QSplitter;
class SelectableTableView;
class QToolButton;

// The main window: toolbar, the filter list, the log table and the status line. It shows what the
// controller tells it and reports commands through its actions; it makes no decisions of its own.
// Every question it asks is window-modal and answered through a callback (no nested event loop).
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    struct Actions
    {
        QAction *connect = nullptr; // Run/Stop
        QAction *autoFollow = nullptr;
        QAction *remoteScreen = nullptr;
        QAction *remoteScreenMenu = nullptr; // the Device menu's item for the same command
        QAction *preferences = nullptr;
        QAction *newWindow = nullptr;
        QAction *open = nullptr;
        QAction *save = nullptr;
        QAction *saveAsText = nullptr;
        QAction *importFilters = nullptr;
        QAction *exportFilters = nullptr;
        QAction *quit = nullptr;
        QAction *clearLog = nullptr;
        QAction *addFilter = nullptr;
        QAction *editFilter = nullptr;
        QAction *removeFilter = nullptr;
        QAction *biggerFont = nullptr;
        QAction *smallerFont = nullptr;
        QAction *actualSize = nullptr; // back to the default font size
        QAction *copy = nullptr;
        QAction *copyMessage = nullptr;
        QAction *viewMessage = nullptr;
        QAction *find = nullptr;
        QAction *findNext = nullptr;
        QAction *findPrevious = nullptr;
        QAction *typingTerminal = nullptr;
        QAction *logTagHelp = nullptr;
        QAction *sharedFilters = nullptr;
        QAction *feedback = nullptr;
        QAction *about = nullptr;
    };
    const Actions &actions() const { return m_actions; }

    SelectableTableView *logTable() const { return m_logTable; }
    FilterListView *filterList() const { return m_filterList; }
    QLineEdit *searchField() const { return m_searchField; }
    QLabel *statusLabel() const { return m_statusLabel; }
    QLabel *filterLabel() const { return m_filterLabel; }

    // The Run/Stop item: start icon and "Run", or stop icon and "Stop" or "Cancel" (retries of an absent device).
    void setConnectButton(ConnectionStatus::ConnectButton button);
    void setStatusText(const QString &text);
    // The active filter, at the right of the status line.
    void setFilterText(const QString &text);
    void setAutoFollowChecked(bool on);

    // A long open or save: a progress bar and a Cancel button in the status line.
    void showProgress(const QString &text);
    void setProgress(int percent); // -1: busy without a known amount
    void hideProgress();
    bool isProgressVisible() const;

    // Window-modal questions; the callback runs once with the answer when the user has chosen.
    // The dialogs are children of the window, so tests find them with findChild.
    QMessageBox *showAlert(const QString &message, const QString &informativeText);
    QMessageBox *ask(const QString &message, const QString &informativeText, const QString &acceptText,
                     const QString &rejectText, std::function<void(bool accepted)> done);
    // A question with several answers: `done` gets the index of the chosen button in `buttons`, or -1
    // when the box was closed without one. The last button is the default, and Escape closes.
    QMessageBox *askChoice(const QString &message, const QString &informativeText, const QStringList &buttons,
                           std::function<void(int chosen)> done);
    // File panels (the toolkit's own, not the desktop's, so they behave the same everywhere).
    QFileDialog *chooseFileToOpen(const QString &title, const QStringList &nameFilters,
                                  std::function<void(const QString &path)> done);
    // `extensions` in order of preference; the first is the default. With `visibleRowsOption` the
    // panel carries the "visible rows only" check box, whose state is passed to `done`.
    QFileDialog *chooseFileToSave(const QString &title, const QStringList &extensions, bool visibleRowsOption,
                                  std::function<void(const QString &path, bool visibleOnly)> done);

signals:
    void progressCancelled();
    void closing();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    void createActions();
    void createMenus();
    void createToolBar();

    Actions m_actions;
    SelectableTableView *m_logTable = nullptr;
    FilterListView *m_filterList = nullptr;
    QSplitter *m_splitter = nullptr;
    QLineEdit *m_searchField = nullptr;
    QLabel *m_statusLabel = nullptr;
    QLabel *m_filterLabel = nullptr;
    QWidget *m_progressBox = nullptr;
    QLabel *m_progressLabel = nullptr;
    QProgressBar *m_progressBar = nullptr;
    QToolButton *m_progressCancel = nullptr;
};
