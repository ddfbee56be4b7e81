// The tray icon's look and menu, against a private X server (without a tray: the icon keeps
// its state all the same).
#include "app/StatusItem.h"

#include <QAction>
#include <QMenu>

#include <gtest/gtest.h>

namespace {

QStringList menuTexts(const QMenu* menu)
{
    QStringList texts;
    for (const QAction* action : menu->actions())
        texts << (action->isSeparator() ? QStringLiteral("-") : action->text());
    return texts;
}

TEST(StatusItem, ArmedAndDisarmedLookDifferentTheTooltipSaysWhyAndTheMenuCopiesDiagnostics)
{
    StatusItem item;
    EXPECT_FALSE(item.isArmedLook());
    const qint64 disarmed = item.icon().cacheKey();
    EXPECT_FALSE(item.icon().isNull());

    item.setState(true, QStringLiteral("Living Room: 27"));
    EXPECT_TRUE(item.isArmedLook());
    EXPECT_EQ(item.toolTip(), QStringLiteral("Velotide\nLiving Room: 27"));
    const qint64 armed = item.icon().cacheKey();
    EXPECT_NE(armed, disarmed);

    // A new level alone repaints nothing.
    item.setState(true, QStringLiteral("Living Room: 29"));
    EXPECT_EQ(item.icon().cacheKey(), armed);
    EXPECT_EQ(item.toolTip(), QStringLiteral("Velotide\nLiving Room: 29"));

    item.setState(false, QStringLiteral("Volume keys inactive — speaker not connected"));
    EXPECT_FALSE(item.isArmedLook());
    EXPECT_NE(item.icon().cacheKey(), armed);
    item.setState(false, QString());
    EXPECT_EQ(item.toolTip(), QStringLiteral("Velotide"));

    int copies = 0;
    QObject::connect(&item, &StatusItem::copyDiagnosticsRequested, [&copies] { ++copies; });
    EXPECT_EQ(menuTexts(item.menu()),
              (QStringList{QStringLiteral("Copy Diagnostics"), QStringLiteral("-"),
                           QStringLiteral("Quit Velotide")}));
    item.menu()->actions().first()->trigger();
    EXPECT_EQ(copies, 1);
}

} // namespace
