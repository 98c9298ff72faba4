// SPDX-License-Identifier: MIT
#pragma once

class QAction;
class QWidget;

namespace WindowCommands {

// Gives a secondary window the desktop's Ctrl+W to close it (dialogs close with Escape as well).
QAction *addCloseShortcut(QWidget *window);

} // namespace WindowCommands
