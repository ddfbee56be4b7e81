#pragma once

#include "ui/panel/MenuBarPanel.h"

class QMenu;

// Fills the tray icon's right-click menu with the application commands, in their fixed order;
// each entry reports through the panel's signals, except the About box and the support page,
// which need nobody else.
void fillSecondaryMenu(QMenu& menu, const MenuBarPanel::MenuFacts& facts, MenuBarPanel& panel);
