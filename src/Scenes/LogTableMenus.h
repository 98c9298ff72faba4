// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

#include <memory>

class LogTableController;
class QMenu;

// The context menus of the log table and of the filter list. Which items appear is decided from a
// CellContext the controller fills in; every item calls back into the controller.
class LogTableMenus
{
public:
    LogTableMenus() = delete;

    // What the log table's menu depends on.
    struct CellContext
    {
        int selectedRows = 0;
        bool firstColumn = true;     // no column, or the leftmost one shown
        QString columnTitle;         // the header's title ("Level" for the key "type")
        QString key;                 // the column's entry key; empty for no column
        QString value;               // the selected entry's value in the column, trimmed
        bool cellHasLink = false;    // the right-clicked cell's value holds a link
        bool cellIsEmpty = true;     // the right-clicked cell's value, untrimmed
        int filterListRow = -1;      // the filter list's selected row
        QString filterName;          // the saved filter shown in that row
    };

    static constexpr int ShortValueLength = 15;

    static std::unique_ptr<QMenu> logTableMenu(LogTableController *controller, const CellContext &cell);
    static std::unique_ptr<QMenu> filterListMenu(LogTableController *controller);
};
