// SPDX-License-Identifier: MIT
#include "Scenes/LogTableMenus.h"

#include "Scenes/LogTableController.h"

#include <QAction>
#include <QKeySequence>
#include <QMenu>

namespace {

template <typename Slot>
QAction *addItem(QMenu *menu, const QString &title, LogTableController *controller, Slot slot,
                 const QString &toolTip = QString(), const QKeySequence &key = {})
{
    QAction *item = menu->addAction(title);
    if (!toolTip.isEmpty())
        item->setToolTip(toolTip);
    if (!key.isEmpty())
        item->setShortcut(key); // shown beside the title; the window's own actions carry the shortcut
    QObject::connect(item, &QAction::triggered, controller, slot);
    return item;
}

// The first `length` characters followed by "..." when the text is longer.
QString shortened(const QString &text, qsizetype length)
{
    return text.size() > length ? text.left(length) + QStringLiteral("...") : text;
}

} // namespace

std::unique_ptr<QMenu> LogTableMenus::logTableMenu(LogTableController *c, const CellContext &cell)
{
    auto menu = std::make_unique<QMenu>();
    menu->setToolTipsVisible(true);
    QMenu *m = menu.get();
    addItem(m, QStringLiteral("Copy"), c, &LogTableController::copy, {}, QKeySequence(Qt::CTRL | Qt::Key_C));
    addItem(m, QStringLiteral("Copy Message"), c, &LogTableController::copyMessageOnly,
            QStringLiteral("Copy Message to clipboard"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_C));
    addItem(m, QStringLiteral("View Message"), c, &LogTableController::onViewText,
            QStringLiteral("View Message contents in message viewer"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_V));
    addItem(m, QStringLiteral("Add Note To Selected"), c, &LogTableController::onAddMultiNotes,
            QStringLiteral("Add a note to multiple log messages"));
    addItem(m, QStringLiteral("Dump Process Tree"), c, &LogTableController::dumpProcessTree,
            QStringLiteral("Dumps process tree from displayed log messages"));
    if (cell.selectedRows != 1)
        return menu;

    const QString &value = cell.value;
    if (!cell.firstColumn) {
        m->addSeparator();
        addItem(m, QStringLiteral("New Filter..."), c, &LogTableController::filterBySelected,
                QStringLiteral("Create new filter: %1 = \"%2\"").arg(cell.columnTitle, value));
        addItem(m, QStringLiteral("Quick Filter"), c, &LogTableController::applyQuickFilter,
                QStringLiteral("Perform quick filter: \"%1\"").arg(value));
        addItem(m, QStringLiteral("Add Note"), c, &LogTableController::addNote,
                QStringLiteral("Adds a note to log message: \"%1\"").arg(value));
        // From row 2 on only: the first saved filter in the list is deliberately not narrowed this way.
        if (cell.filterListRow >= 2) {
            QMenu *update = m->addMenu(QStringLiteral("Update Filter"));
            update->setToolTipsVisible(true);
            const QString shortValue = shortened(value, ShortValueLength);
            addItem(update, QStringLiteral("Include \"%1\"").arg(shortValue), c, &LogTableController::updateFilterInclude,
                    QStringLiteral("Update saved filter \"%1\" to INCLUDE %2=\"%3\"").arg(cell.filterName, cell.columnTitle, value));
            addItem(update, QStringLiteral("Exclude \"%1\"").arg(shortValue), c, &LogTableController::updateFilterExclude,
                    QStringLiteral("Update saved filter \"%1\" to EXCLUDE %2=\"%3\"").arg(cell.filterName, cell.columnTitle, value));
        }
    }
    m->addSeparator();
    if (cell.key == QLatin1String("text") && cell.cellHasLink)
        addItem(m, QStringLiteral("Open Link"), c, &LogTableController::openRightClickedLink);
    addItem(m, QStringLiteral("Search with Google"), c, &LogTableController::onSearchGoogle);
    if (cell.key == QLatin1String("app") && cell.cellIsEmpty) {
        m->addSeparator();
        addItem(m, QStringLiteral("Set App Name"), c, &LogTableController::userDefinedAppName);
    }
    return menu;
}

std::unique_ptr<QMenu> LogTableMenus::filterListMenu(LogTableController *c)
{
    auto menu = std::make_unique<QMenu>();
    menu->setToolTipsVisible(true);
    addItem(menu.get(), QStringLiteral("Edit Filter..."), c, &LogTableController::editFilter);
    addItem(menu.get(), QStringLiteral("New Filter From Selected..."), c, &LogTableController::newFilterFromSelected);
    addItem(menu.get(), QStringLiteral("Export Selected..."), c, &LogTableController::exportSelectedFilters);
    return menu;
}
