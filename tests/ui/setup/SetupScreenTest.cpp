// Each step of the setup window on a real X server, saved for a person to look at (run once
// as it is and once under QT_SCALE_FACTOR=2), and checked for what a picture shows at a
// glance: the window stays on the screen and no text is cut short.
#include "ScreenShots.h"
#include "common/Wait.h"
#include "ui/setup/OnboardingWindow.h"

#include <QGuiApplication>
#include <QLabel>
#include <QScreen>

#include <gtest/gtest.h>

using Window = OnboardingWindow;

namespace {

TEST(SetupScreen, EveryStepFitsTheScreenAndShowsItsWholeText)
{
    Window::Providers p;
    // The desktop holds the keys: the longest input-access step.
    p.inputAccess = [] { return Window::InputAccess{true, false, true}; };
    p.zones = [] {
        return QtFuture::makeReadyFuture(
            Window::Zones{{"Kitchen", "Living Room"},
                          {{"Kitchen", "Sonos One"}, {"Living Room", "Sonos Arc"}},
                          QStringLiteral("Living Room")});
    };
    p.readyState = [] { return Window::ReadyState::noPermission; };
    p.loginEnabled = [] { return true; };
    p.trayAvailable = [] { return false; };
    Window window(p);
    window.show();
    const QRect screen = QGuiApplication::primaryScreen()->availableGeometry();
    const QString scale = qEnvironmentVariable("QT_SCALE_FACTOR", QStringLiteral("1"));
    const char* const names[] = {"welcome", "input-access", "network", "speaker", "ready"};
    for (int step = 0; step < Window::stepCount; ++step) {
        window.goTo(static_cast<Window::Step>(step));
        testing_support::spinFor(std::chrono::milliseconds(300));
        screen_shots::grabScreen(QStringLiteral("setup-%1-x%2").arg(names[step], scale));
        EXPECT_TRUE(screen.contains(window.frameGeometry()))
            << names[step] << ": " << window.frameGeometry().height() << " high";
        for (const QLabel* label : window.findChildren<QLabel*>()) {
            if (label->isVisible() && label->wordWrap()) {
                EXPECT_GE(label->height(), label->heightForWidth(label->width()))
                    << names[step] << ": " << label->text().left(40).toStdString();
            }
        }
    }
}

} // namespace
