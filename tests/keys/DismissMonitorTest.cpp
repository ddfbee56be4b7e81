#include "keys/DismissMonitor.h"

#include "X11Session.h"
#include "common/Wait.h"

#include <gtest/gtest.h>

using testing_support::spinFor;
using testing_support::spinUntil;
using x11_session::FocusedWindow;
using x11_session::xdotool;

namespace {

QStringList words(const char* text)
{
    return QString::fromLatin1(text).split(u' ');
}

class DismissMonitorTest : public ::testing::Test {
protected:
    // Everything done before it has been dealt with once the window has seen "a" go by.
    void settle()
    {
        const int before = window.presses(Qt::Key_A);
        ASSERT_TRUE(xdotool(words("key a")));
        ASSERT_TRUE(spinUntil([&] { return window.presses(Qt::Key_A) > before; }));
        spinFor(std::chrono::milliseconds(30));
    }

    FocusedWindow window;
    std::vector<QPoint> clicks;
    DismissMonitor monitor;
    QMetaObject::Connection recording = QObject::connect(
        &monitor, &DismissMonitor::clicked, [this](QPoint at) { clicks.push_back(at); });
};

TEST_F(DismissMonitorTest, whileStartedEveryButtonPressIsReportedWithItsPositionAndNothingElse)
{
    ASSERT_TRUE(window.showFocused());
    monitor.start();
    monitor.start(); // a second start adds no second watch
    ASSERT_TRUE(monitor.isRunning());

    ASSERT_TRUE(xdotool(words("mousemove 40 700 click 1 mousemove 1100 60 click 3 click 2")));
    ASSERT_TRUE(spinUntil([&] { return clicks.size() >= 3; }));
    ASSERT_TRUE(xdotool(words("mousemove 600 500 mousemove 20 20 click 4 click 5 key b")));
    settle();
    EXPECT_EQ(clicks, (std::vector<QPoint>{{40, 700}, {1100, 60}, {1100, 60}}))
        << "no moves, no wheel steps, no keys";

    monitor.stop();
    EXPECT_FALSE(monitor.isRunning());
    ASSERT_TRUE(xdotool(words("click 1")));
    settle();
    EXPECT_EQ(clicks.size(), 3u);
    monitor.start();
    ASSERT_TRUE(xdotool(words("click 1")));
    EXPECT_TRUE(spinUntil([&] { return clicks.size() == 4; }));
}

TEST_F(DismissMonitorTest, aClickOnOurOwnWindowIsReportedAndStillReachesIt)
{
    ASSERT_TRUE(window.showFocused());
    monitor.start();
    const QPoint inside = window.geometry().center();
    ASSERT_TRUE(
        xdotool({QStringLiteral("mousemove"), QString::number(inside.x()),
                 QString::number(inside.y()), QStringLiteral("click"), QStringLiteral("1")}));
    ASSERT_TRUE(spinUntil([&] { return !clicks.empty() && !window.clicks.empty(); }));
    EXPECT_EQ(clicks, std::vector<QPoint>{inside});
    EXPECT_EQ(window.clicks, std::vector<QPoint>{inside});
}

} // namespace
