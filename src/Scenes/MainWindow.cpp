// SPDX-License-Identifier: MIT
#include "Scenes/MainWindow.h"

#include "Scenes/FilterListView.h"
#include "Scenes/SelectableTableView.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSplitter>
#include <QStatusBar>
#include <QStyle>
#include <QTableView>
#include <QToolBar>
#include <QToolButton>

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
{
    setObjectName(QStringLiteral("mainWindow"));
    setWindowIcon(QIcon(QStringLiteral(":/icons/quillfern-256.png")));
    setUnifiedTitleAndToolBarOnMac(true);

    m_filterList = new FilterListView(this);
    m_logTable = new SelectableTableView(this);
    m_logTable->setObjectName(QStringLiteral("logDataTable"));
    m_logTable->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_logTable->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_logTable->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_logTable->setShowGrid(false);
    m_logTable->setWordWrap(false);
    m_logTable->setAlternatingRowColors(true);
    m_logTable->verticalHeader()->hide();
    m_logTable->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    m_logTable->horizontalHeader()->setStretchLastSection(true);
    m_logTable->horizontalHeader()->setSectionsMovable(true);
    m_logTable->horizontalHeader()->setHighlightSections(false);
    m_logTable->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    m_logTable->setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);

    m_splitter = new QSplitter(Qt::Horizontal, this);
    m_splitter->addWidget(m_filterList);
    m_splitter->addWidget(m_logTable);
    m_splitter->setStretchFactor(0, 0);
    m_splitter->setStretchFactor(1, 1);
    m_splitter->setSizes({190, 1010});
    m_splitter->setChildrenCollapsible(false);
    m_filterList->setMinimumWidth(140);
    setCentralWidget(m_splitter);

    m_statusLabel = new QLabel(this);
    m_statusLabel->setObjectName(QStringLiteral("statusLine"));
    statusBar()->addWidget(m_statusLabel, 1);
    m_filterLabel = new QLabel(this);
    m_filterLabel->setObjectName(QStringLiteral("filterLine"));
    m_filterLabel->setTextFormat(Qt::PlainText);
    m_filterLabel->setMaximumWidth(520);
    statusBar()->addPermanentWidget(m_filterLabel);

    m_progressBox = new QWidget(this);
    auto *progressLayout = new QHBoxLayout(m_progressBox);
    progressLayout->setContentsMargins(0, 0, 0, 0);
    m_progressLabel = new QLabel(m_progressBox);
    m_progressBar = new QProgressBar(m_progressBox);
    m_progressBar->setFixedWidth(180);
    m_progressBar->setMaximumHeight(16);
    m_progressCancel = new QToolButton(m_progressBox);
    m_progressCancel->setText(tr("Cancel"));
    m_progressCancel->setObjectName(QStringLiteral("progressCancel"));
    progressLayout->addWidget(m_progressLabel);
    progressLayout->addWidget(m_progressBar);
    progressLayout->addWidget(m_progressCancel);
    statusBar()->addPermanentWidget(m_progressBox);
    m_progressBox->hide();
    connect(m_progressCancel, &QToolButton::clicked, this, &MainWindow::progressCancelled);

    createActions();
    createMenus();
    createToolBar();
    setConnectButton(ConnectionStatus::ConnectButton::Run);
    resize(1200, 760);
}

MainWindow::~MainWindow() = default;

void MainWindow::createActions()
{
    auto make = [this](const QString &text, const QKeySequence &shortcut = {}) {
        auto *action = new QAction(text, this);
        if (!shortcut.isEmpty())
            action->setShortcut(shortcut);
        return action;
    };
    Actions &a = m_actions;
    a.connect = make(tr("Run"), QKeySequence(Qt::CTRL | Qt::Key_R));
    a.connect->setObjectName(QStringLiteral("connectAction"));
    a.autoFollow = make(tr("Follow"), QKeySequence(Qt::CTRL | Qt::Key_J));
    a.autoFollow->setCheckable(true);
    a.autoFollow->setIcon(QIcon(QStringLiteral(":/icons/follow.png")));
    a.autoFollow->setToolTip(tr("Keep the newest line in view"));
    a.remoteScreen = make(tr("Screen"));
    a.remoteScreen->setIcon(QIcon(QStringLiteral(":/icons/remote.png")));
    a.remoteScreen->setToolTip(tr("Show or hide the device's screen"));
    a.remoteScreenMenu = make(tr("Remote Screen"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_R));
    a.preferences = make(tr("Preferences"), QKeySequence(Qt::CTRL | Qt::Key_Comma));
    a.preferences->setIcon(QIcon(QStringLiteral(":/icons/preferences.png")));
    a.preferences->setMenuRole(QAction::PreferencesRole);
    a.newWindow = make(tr("New Window"), QKeySequence::New);
    a.open = make(tr("Open..."), QKeySequence::Open);
    a.save = make(tr("Save..."), QKeySequence::Save);
    a.saveAsText = make(tr("Save as Text..."), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S));
    a.importFilters = make(tr("Import Filters..."));
    a.exportFilters = make(tr("Export Selected Filters..."));
    a.quit = make(tr("Quit"), QKeySequence::Quit);
    a.clearLog = make(tr("Clear Log"), QKeySequence(Qt::CTRL | Qt::Key_K));
    a.addFilter = make(tr("New Filter..."));
    a.editFilter = make(tr("Edit Filter..."));
    a.removeFilter = make(tr("Delete Filter..."));
    a.biggerFont = make(tr("Bigger"));
    a.biggerFont->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_Plus), QKeySequence(Qt::CTRL | Qt::Key_Equal)});
    a.smallerFont = make(tr("Smaller"), QKeySequence(Qt::CTRL | Qt::Key_Minus));
    a.actualSize = make(tr("Actual Size"), QKeySequence(Qt::CTRL | Qt::Key_0));
    a.copy = make(tr("Copy"), QKeySequence::Copy);
    a.copyMessage = make(tr("Copy Message"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_C));
    a.viewMessage = make(tr("View Message"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_V));
    a.find = make(tr("Find"), QKeySequence::Find);
    a.findNext = make(tr("Find Next"));
    a.findNext->setShortcuts({QKeySequence(Qt::Key_F3), QKeySequence(Qt::CTRL | Qt::Key_G)});
    a.findPrevious = make(tr("Find Previous"));
    a.findPrevious->setShortcuts({QKeySequence(Qt::SHIFT | Qt::Key_F3), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_G)});
    a.typingTerminal = make(tr("Typing Terminal"));
    a.typingTerminal->setToolTip(tr("Type into the device from a terminal window"));
    a.logTagHelp = make(tr("Log Tag Help"));
    a.sharedFilters = make(tr("Shared Filters"));
    a.feedback = make(tr("Send Feedback"));
    a.about = make(tr("About Quillfern"));
    a.about->setMenuRole(QAction::AboutRole);
    connect(a.find, &QAction::triggered, this, [this] {
        m_searchField->setFocus(Qt::ShortcutFocusReason);
        m_searchField->selectAll();
    });
    connect(a.quit, &QAction::triggered, this, &QWidget::close);
}

void MainWindow::createMenus()
{
    const Actions &a = m_actions;
    QMenu *file = menuBar()->addMenu(tr("&File"));
    file->addAction(a.newWindow);
    file->addAction(a.open);
    file->addSeparator();
    file->addAction(a.save);
    file->addAction(a.saveAsText);
    file->addSeparator();
    file->addAction(a.importFilters);
    file->addAction(a.exportFilters);
    file->addSeparator();
    file->addAction(a.quit);

    QMenu *edit = menuBar()->addMenu(tr("&Edit"));
    edit->addAction(a.copy);
    edit->addAction(a.copyMessage);
    edit->addAction(a.viewMessage);
    edit->addSeparator();
    edit->addAction(a.find);
    edit->addAction(a.findNext);
    edit->addAction(a.findPrevious);
    edit->addSeparator();
    edit->addAction(a.clearLog);
    edit->addSeparator();
    edit->addAction(a.preferences);

    QMenu *view = menuBar()->addMenu(tr("&View"));
    view->addAction(a.autoFollow);
    view->addSeparator();
    view->addAction(a.biggerFont);
    view->addAction(a.smallerFont);
    view->addAction(a.actualSize);

    QMenu *filters = menuBar()->addMenu(tr("F&ilters"));
    filters->addAction(a.addFilter);
    filters->addAction(a.editFilter);
    filters->addAction(a.removeFilter);
    filters->addSeparator();
    filters->addAction(a.sharedFilters);

    QMenu *device = menuBar()->addMenu(tr("&Device"));
    device->addAction(a.connect);
    device->addAction(a.remoteScreenMenu);
    device->addAction(a.typingTerminal);

    QMenu *help = menuBar()->addMenu(tr("&Help"));
    help->addAction(a.logTagHelp);
    help->addAction(a.feedback);
    help->addSeparator();
    help->addAction(a.about);
}

void MainWindow::createToolBar()
{
    QToolBar *bar = addToolBar(tr("Toolbar"));
    bar->setObjectName(QStringLiteral("mainToolBar"));
    bar->setMovable(false);
    bar->setFloatable(false);
    bar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    bar->setIconSize(QSize(24, 24));
    bar->addAction(m_actions.connect);
    bar->addAction(m_actions.autoFollow);
    bar->addAction(m_actions.remoteScreen);

    auto *spacer = new QWidget(bar);
    spacer->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    bar->addWidget(spacer);

    m_searchField = new QLineEdit(bar);
    m_searchField->setObjectName(QStringLiteral("searchField"));
    m_searchField->setPlaceholderText(tr("Search"));
    m_searchField->setClearButtonEnabled(true);
    m_searchField->setFixedWidth(260);
    bar->addWidget(m_searchField);
    // Escape in the box clears the search, as in every search box of the desktop.
    auto *clearSearch = new QAction(tr("Clear Search"), m_searchField);
    clearSearch->setShortcut(QKeySequence(Qt::Key_Escape));
    clearSearch->setShortcutContext(Qt::WidgetShortcut);
    connect(clearSearch, &QAction::triggered, m_searchField, &QLineEdit::clear);
    m_searchField->addAction(clearSearch);
    bar->addAction(m_actions.preferences);
}

void MainWindow::setConnectButton(ConnectionStatus::ConnectButton button)
{
    using ConnectionStatus::ConnectButton;
    m_actions.connect->setText(ConnectionStatus::connectButtonLabel(button));
    m_actions.connect->setIcon(QIcon(button == ConnectButton::Run ? QStringLiteral(":/icons/start.png")
                                                                  : QStringLiteral(":/icons/stop.png")));
    m_actions.connect->setToolTip(button == ConnectButton::Cancel ? tr("The device is away; stop waiting for it")
                                  : button == ConnectButton::Stop ? tr("Stop logging")
                                                                  : tr("Start logging"));
}

void MainWindow::setStatusText(const QString &text)
{
    m_statusLabel->setText(text);
}

void MainWindow::setFilterText(const QString &text)
{
    m_filterLabel->setText(m_filterLabel->fontMetrics().elidedText(text, Qt::ElideRight, m_filterLabel->maximumWidth()));
    m_filterLabel->setToolTip(text);
}

void MainWindow::setAutoFollowChecked(bool on)
{
    m_actions.autoFollow->setChecked(on);
}

void MainWindow::showProgress(const QString &text)
{
    m_progressLabel->setText(text);
    m_progressBar->setRange(0, 0);
    m_progressBox->show();
}

void MainWindow::setProgress(int percent)
{
    if (percent < 0) {
        m_progressBar->setRange(0, 0);
    } else {
        m_progressBar->setRange(0, 100);
        m_progressBar->setValue(percent);
    }
}

void MainWindow::hideProgress()
{
    m_progressBox->hide();
}

bool MainWindow::isProgressVisible() const
{
    return !m_progressBox->isHidden();
}

QMessageBox *MainWindow::showAlert(const QString &message, const QString &informativeText)
{
    return ask(message, informativeText, tr("OK"), QString(), [](bool) {});
}

// A window-modal warning box of this window, deleted when closed.
static QMessageBox *questionBox(QWidget *window, const QString &message, const QString &informativeText)
{
    auto *box = new QMessageBox(window);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    box->setWindowTitle(QApplication::applicationDisplayName());
    box->setIcon(QMessageBox::Warning);
    box->setText(message);
    box->setInformativeText(informativeText);
    return box;
}

QMessageBox *MainWindow::ask(const QString &message, const QString &informativeText, const QString &acceptText,
                             const QString &rejectText, std::function<void(bool)> done)
{
    QMessageBox *box = questionBox(this, message, informativeText);
    QPushButton *accept = box->addButton(acceptText, QMessageBox::AcceptRole);
    if (!rejectText.isNull())
        box->setDefaultButton(box->addButton(rejectText, QMessageBox::RejectRole));
    else
        box->setDefaultButton(accept);
    connect(box, &QMessageBox::finished, this, [box, accept, done = std::move(done)](int) {
        done(box->clickedButton() == accept);
    });
    box->open();
    return box;
}

QMessageBox *MainWindow::askChoice(const QString &message, const QString &informativeText,
                                   const QStringList &buttons, std::function<void(int)> done)
{
    QMessageBox *box = questionBox(this, message, informativeText);
    QList<QAbstractButton *> added;
    for (const QString &title : buttons)
        added.append(box->addButton(title, QMessageBox::ActionRole));
    if (!added.isEmpty()) {
        box->setDefaultButton(qobject_cast<QPushButton *>(added.last()));
        box->setEscapeButton(added.last());
    }
    connect(box, &QMessageBox::finished, this,
            [box, added, done = std::move(done)](int) { done(int(added.indexOf(box->clickedButton()))); });
    box->open();
    return box;
}

QFileDialog *MainWindow::chooseFileToOpen(const QString &title, const QStringList &nameFilters,
                                          std::function<void(const QString &)> done)
{
    auto *dialog = new QFileDialog(this, title);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setNameFilters(nameFilters);
    connect(dialog, &QFileDialog::finished, this, [dialog, done = std::move(done)](int result) {
        const QStringList files = dialog->selectedFiles();
        if (result == QDialog::Accepted && !files.isEmpty())
            done(files.front());
    });
    dialog->open();
    return dialog;
}

QFileDialog *MainWindow::chooseFileToSave(const QString &title, const QStringList &extensions, bool visibleRowsOption,
                                          std::function<void(const QString &, bool)> done)
{
    auto *dialog = new QFileDialog(this, title);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    QStringList filters;
    for (const QString &ext : extensions)
        filters << tr("%1 files (*.%2)").arg(ext.toUpper(), ext);
    dialog->setNameFilters(filters);
    if (!extensions.isEmpty())
        dialog->setDefaultSuffix(extensions.front());
    // Follow the chosen type, so "Save as Text" really ends in .log unless the user says otherwise.
    connect(dialog, &QFileDialog::filterSelected, dialog, [dialog, extensions, filters](const QString &filter) {
        const qsizetype i = filters.indexOf(filter);
        if (i >= 0)
            dialog->setDefaultSuffix(extensions.at(i));
    });
    QCheckBox *visibleOnly = nullptr;
    if (visibleRowsOption) {
        visibleOnly = new QCheckBox(tr("Save only the visible rows"), dialog);
        visibleOnly->setObjectName(QStringLiteral("visibleRowsOnly"));
        if (auto *grid = qobject_cast<QGridLayout *>(dialog->layout()))
            grid->addWidget(visibleOnly, grid->rowCount(), 0, 1, grid->columnCount());
    }
    connect(dialog, &QFileDialog::finished, this, [dialog, visibleOnly, done = std::move(done)](int result) {
        const QStringList files = dialog->selectedFiles();
        if (result == QDialog::Accepted && !files.isEmpty())
            done(files.front(), visibleOnly && visibleOnly->isChecked());
    });
    dialog->open();
    return dialog;
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    emit closing();
    event->accept();
}
