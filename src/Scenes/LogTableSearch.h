// SPDX-License-Identifier: MIT
#pragma once

#include <QLineEdit>
#include <QList>
#include <QPointer>
#include <QString>

#include <functional>
#include <optional>

class LogTableModel;
class QKeyEvent;
class SelectableTableView;

// The log table's search: the search field's commands and the keys typed straight into a table (a live
// search that grows with every key, Backspace/Delete shortening it, Escape ending it, Return finding the
// next match; navigation keys stay the table's). LogSearch finds the row; this class selects and shows
// it, beeps and writes the diagnostic lines. GUI thread only.
class LogTableSearch
{
public:
    LogTableSearch(SelectableTableView *table, LogTableModel *model);

    void setSearchField(QLineEdit *field) { m_searchField = field; }
    // Null: QApplication::beep.
    void setBeep(std::function<void()> beep) { m_beep = std::move(beep); }

    void doSearch(const QString &text, int direction);
    void find();
    void findNext();
    void findPrevious();

    // A key without Ctrl, Alt or Meta, offered by either table; true when handled.
    bool handleTypedKey(QKeyEvent *event);
    bool isLiveSearching() const { return m_isLiveSearching; }
    void setLiveSearching(bool on) { m_isLiveSearching = on; }
    static bool isNavigationKey(int qtKey);
    // The beep given by setBeep; the table's other commands beep through it too.
    void beep();

private:
    void setSearchFieldText(const QString &text);
    std::optional<int> selectedRow() const;

    SelectableTableView *m_table;
    LogTableModel *m_model;
    QPointer<QLineEdit> m_searchField;
    std::function<void()> m_beep;
    bool m_isLiveSearching = false;
};
