#pragma once

#include <QPoint>
#include <QRect>
#include <QSize>

// Where the panel opens: centred on the tray icon when the tray says where that is, otherwise
// on the pointer; below it when that is in the upper half of the screen, above it otherwise;
// always wholly on the screen area given.
QPoint panelPosition(QSize panel, const QRect& trayIcon, QPoint cursor, const QRect& screenArea);
