// SPDX-License-Identifier: MIT
#include "Scenes/WindowCommands.h"

#include <QAction>
#include <QWidget>

QAction *WindowCommands::addCloseShortcut(QWidget *window)
{
    auto *close = new QAction(QObject::tr("Close"), window);
    close->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_W));
    QObject::connect(close, &QAction::triggered, window, &QWidget::close);
    window->addAction(close);
    return close;
}
