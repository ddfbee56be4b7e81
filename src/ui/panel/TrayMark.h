#pragma once

#include <QIcon>
#include <QPixmap>

// The application's own mark for the tray: the front of a network speaker, a box with a
// woofer and a tweeter, unlike the desktop's volume icon (a loudspeaker seen from the side,
// with waves). Armed (the volume keys go to the speaker) it is solid; disarmed (they stay
// with the desktop) it is hollow and struck through, so the two differ in shape and not
// only in colour. A thin outline in the opposite colour keeps it visible on a panel of
// either shade.
namespace TrayMark {

// `dark`: the desktop has a dark look, so the mark is light with a dark outline.
QIcon icon(bool armed, bool dark);
// One image of the mark, `size` device-independent pixels square.
QPixmap pixmap(bool armed, bool dark, int size, qreal devicePixelRatio);

} // namespace TrayMark
