#include "ui/panel/PanelPlacement.h"

#include <algorithm>

QPoint panelPosition(QSize panel, const QRect& trayIcon, QPoint cursor, const QRect& screenArea)
{
    // StatusNotifierItem hosts never say where the icon is; the click that opened the panel
    // was on it, so the pointer stands in for it.
    const QRect anchor = trayIcon.isValid() ? trayIcon : QRect(cursor, QSize(1, 1));
    const bool trayAtTop = anchor.center().y() < screenArea.center().y();
    int x = anchor.center().x() - panel.width() / 2;
    int y = trayAtTop ? anchor.bottom() + 4 : anchor.top() - 4 - panel.height();
    x = std::clamp(x, screenArea.left(),
                   std::max(screenArea.left(), screenArea.right() + 1 - panel.width()));
    y = std::clamp(y, screenArea.top(),
                   std::max(screenArea.top(), screenArea.bottom() + 1 - panel.height()));
    return {x, y};
}
