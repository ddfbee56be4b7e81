#include "keys/DismissMonitor.h"

#include "X11Session.h"
#include "common/Wait.h"

#include <gtest/gtest.h>

using testing_support::spinUntil;
using x11_session::xdotool;

namespace {

TEST(DismissMonitorTest, whileStartedEveryButtonPressIsReportedWithItsPositionAndNothingElse)
{
    x11_session::FocusedWindow window;
    std::vector<QPoint> clicks;
    DismissMonitor monitor;
    QObject::connect(&monitor, &DismissMonitor::clicked, [&](QPoint at) { clicks.push_back(at); });
    ASSERT_TRUE(window.showFocused());
    monitor.start();
    monitor.start(); // a second start adds no second watch
    ASSERT_TRUE(monitor.isRunning());

    ASSERT_TRUE(
        xdotool(QStringLiteral("mousemove 40 700 click 1 mousemove 1100 60 click 3 click 2")));
    ASSERT_TRUE(spinUntil([&] { return clicks.size() >= 3; }));
    ASSERT_TRUE(xdotool(QStringLiteral("mousemove 600 500 mousemove 20 20 click 4 click 5 key b")));
    ASSERT_TRUE(window.settle());
    EXPECT_EQ(clicks, (std::vector<QPoint>{{40, 700}, {1100, 60}, {1100, 60}}))
        << "no moves, no wheel steps, no keys";

    // A click on our own window is reported and still reaches it.
    const QPoint inside = window.geometry().center();
    ASSERT_TRUE(xdotool(QStringLiteral("mousemove %1 %2 click 1").arg(inside.x()).arg(inside.y())));
    ASSERT_TRUE(spinUntil([&] { return clicks.size() == 4 && !window.clicks.empty(); }));
    EXPECT_EQ(clicks.back(), inside);
    EXPECT_EQ(window.clicks, std::vector<QPoint>{inside});

    monitor.stop();
    EXPECT_FALSE(monitor.isRunning());
    ASSERT_TRUE(xdotool(QStringLiteral("click 1")));
    ASSERT_TRUE(window.settle());
    EXPECT_EQ(clicks.size(), 4u);
    monitor.start();
    ASSERT_TRUE(xdotool(QStringLiteral("click 1")));
    EXPECT_TRUE(spinUntil([&] { return clicks.size() == 5; }));
}

// The click that closes what the monitor guarded stops it from inside its own report, while
// more clicks wait to be read: they are dropped with the watch, never read from it.
TEST(DismissMonitorTest, aClickThatStopsTheMonitorEndsItsReadingAtOnce)
{
    x11_session::FocusedWindow window;
    ASSERT_TRUE(window.showFocused());
    DismissMonitor monitor;
    int clicks = 0;
    QObject::connect(&monitor, &DismissMonitor::clicked, [&] {
        ++clicks;
        monitor.stop();
    });
    monitor.start();
    ASSERT_TRUE(xdotool(QStringLiteral("click --repeat 4 --delay 1 1")));
    ASSERT_TRUE(spinUntil([&] { return clicks >= 1; }));
    ASSERT_TRUE(window.settle());
    EXPECT_EQ(clicks, 1);
    EXPECT_FALSE(monitor.isRunning());
}

} // namespace
