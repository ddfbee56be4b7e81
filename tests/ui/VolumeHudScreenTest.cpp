// The overlay on a real X server with a compositor, checked by the pixels it puts on screen.
#include "ScreenShots.h"
#include "common/Wait.h"
#include "support/Log.h"
#include "ui/HudDemo.h"
#include "ui/VolumeHUD.h"

#include <QAccessible>
#include <QApplication>
#include <QProcess>
#include <QScreen>
#include <QTimer>

#include <gtest/gtest.h>

using namespace screen_shots;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

// Long enough that nothing fades while a test looks.
constexpr double longHold = 60;
// Row through the middle of the level bar, and the track's ends, in screen pixels.
constexpr int barRow = capsuleY + 19;
constexpr int trackLeft = capsuleX + 46;
constexpr int trackRight = capsuleX + 46 + 166 - 1;

class VolumeHudScreen : public ::testing::Test {
protected:
    void SetUp() override
    {
        backdrop.show();
        ASSERT_TRUE(spinUntil([&] { return backdrop.isVisible(); }));
        spinFor(std::chrono::milliseconds(100));
    }

    // Shows a reading and answers the screen once the compositor has drawn it.
    QImage showAndGrab(int volume, bool muted, bool unreachable, const QString& name)
    {
        hud.show(volume, muted, unreachable, QStringLiteral("Kitchen"), longHold);
        spinFor(std::chrono::milliseconds(250));
        return grabScreen(name);
    }

    QColor label() const { return hud.panel()->palette().color(QPalette::WindowText); }
    QColor window() const { return hud.panel()->palette().color(QPalette::Window); }
    // The translucent backdrop as it looks over the test's backdrop window.
    QColor capsule() const { return blend(window(), 0.86, backdrop.color()); }
    QColor track() const { return blend(label(), HudLook::tertiaryAlpha, capsule()); }
    // The width of a fill drawn with `alpha` over the track, along the bar's middle row.
    double fillWidth(const QImage& image, double alpha) const
    {
        return barWidth(image, barRow, trackLeft - 2, trackRight + 2,
                        blend(label(), alpha, track()), track());
    }
    // How many pixels of the icon are near `color`.
    static int iconPixelsNear(const QImage& image, const QColor& color, int tolerance)
    {
        int count = 0;
        for (int y = capsuleY + 8; y < capsuleY + 30; ++y)
            count += countNear(image, y, capsuleX + 16, capsuleX + 37, color, tolerance);
        return count;
    }

    Backdrop backdrop{QColor(32, 96, 160)};
    VolumeHUD hud;
};

TEST_F(VolumeHudScreen, AStandingTranslucentCapsuleOverEverythingThatTakesNoInput)
{
    backdrop.activateWindow();
    spinFor(std::chrono::milliseconds(100));
    EXPECT_EQ(hud.material(), HudMaterial::Translucent);
    const QImage shot = showAndGrab(40, false, false, "hud-translucent-40");

    EXPECT_EQ(hud.panel()->geometry(), QRect(capsuleX, capsuleY, 230, 38));
    EXPECT_TRUE(near(shot.pixel(inside), capsule())) << "not the blended backdrop";
    EXPECT_FALSE(near(shot.pixel(inside), window(), 2))
        << "the backdrop lets the window behind show";
    for (const QPoint outside : {QPoint(capsuleX + 1, capsuleY + 1), QPoint(capsuleX - 2, barRow),
                                 QPoint(capsuleX + 231, barRow), QPoint(capsuleX + 115, 47),
                                 QPoint(capsuleX + 228, capsuleY + 36)}) {
        EXPECT_TRUE(near(shot.pixel(outside), backdrop.color()))
            << "outside the capsule at " << outside.x() << "," << outside.y();
    }
    EXPECT_TRUE(near(shot.pixel(capsuleX + 2, barRow), capsule(), 12))
        << "the rounded end reaches the left edge at mid-height";

    // Clicks pass through to the window behind; focus and screen readers stay away.
    const QPoint target(capsuleX + 100, barRow);
    ASSERT_EQ(QProcess::execute("xdotool", {"mousemove", QString::number(target.x()),
                                            QString::number(target.y()), "click", "1"}),
              0);
    ASSERT_TRUE(spinUntil([&] { return !backdrop.presses.isEmpty(); }))
        << "the click did not pass through the overlay";
    EXPECT_EQ(backdrop.presses.first(), target);
    EXPECT_FALSE(hud.panel()->isActiveWindow());
    EXPECT_NE(QGuiApplication::focusWindow(), hud.panel()->windowHandle());

    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(hud.panel());
    ASSERT_TRUE(accessible);
    EXPECT_TRUE(accessible->state().invisible) << "screen readers do not land on the overlay";
    EXPECT_FALSE(accessible->state().focusable);

    // A full-screen window that comes up over it is covered again by the next press.
    Backdrop fullScreen(QColor(20, 120, 40));
    fullScreen.showFullScreen();
    fullScreen.raise();
    spinFor(std::chrono::milliseconds(250));
    ASSERT_TRUE(near(grabScreen("hud-covered-by-full-screen").pixel(inside), fullScreen.color()))
        << "the full-screen window came up over the overlay";

    const QImage over = showAndGrab(60, false, false, "hud-over-full-screen");
    EXPECT_TRUE(near(over.pixel(inside), blend(window(), 0.86, fullScreen.color())));
    EXPECT_EQ(hud.panel()->geometry(), QRect(capsuleX, capsuleY, 230, 38))
        << "a visible overlay is not moved";
}

TEST_F(VolumeHudScreen, MutedAndUnreachableKeepTheLevelInPaleShades)
{
    const QImage normal = showAndGrab(40, false, false, "hud-normal-40");
    const QImage muted = showAndGrab(40, true, false, "hud-muted-40");
    EXPECT_NEAR(fillWidth(muted, HudLook::mutedFillAlpha), 66.4, 1.5);
    EXPECT_EQ(countNear(muted, barRow, trackLeft, trackRight, label(), 30), 0)
        << "no full-strength fill while muted";
    int differing = 0;
    for (int y = capsuleY + 8; y < capsuleY + 30; ++y) {
        for (int x = capsuleX + 16; x <= capsuleX + 37; ++x)
            differing += normal.pixel(x, y) != muted.pixel(x, y);
    }
    EXPECT_GT(differing, 20) << "the muted icon is another picture";
    EXPECT_GT(iconPixelsNear(muted, label(), 8), 30) << "the muted icon is in the text colour";

    const QImage unreachable = showAndGrab(100, false, true, "hud-unreachable-100");
    EXPECT_NEAR(fillWidth(unreachable, HudLook::tertiaryAlpha), 166, 1.5);
    EXPECT_EQ(iconPixelsNear(unreachable, label(), 12), 0) << "no icon pixel in the text colour";
    EXPECT_GT(iconPixelsNear(unreachable, blend(label(), HudLook::secondaryAlpha, capsule()), 6),
              30)
        << "the icon is drawn in the secondary shade";
}

TEST_F(VolumeHudScreen, OpaqueBackdropWhenTransparencyIsReduced)
{
    DisplayOptions options;
    options.reduceTransparency = true;
    options.increaseContrast = true;
    hud.setDisplayOptions(options);
    EXPECT_EQ(hud.material(), HudMaterial::OpaqueReduceTransparency);

    const QImage shot = showAndGrab(40, false, false, "hud-opaque-contrast-40");
    EXPECT_TRUE(near(shot.pixel(inside), window(), 1));
    EXPECT_TRUE(near(shot.pixel(capsuleX + 120, capsuleY), label(), 40))
        << "a border in the text colour";
    EXPECT_TRUE(near(shot.pixel(capsuleX + 1, capsuleY + 1), backdrop.color()));
    const QColor contrastTrack = blend(label(), HudLook::secondaryAlpha, window());
    EXPECT_GE(countNear(shot, barRow, trackLeft + 70, trackRight, contrastTrack, 6), 90)
        << "the track is darker with Increase Contrast";

    hud.setDisplayOptions({});
    EXPECT_EQ(hud.material(), HudMaterial::Translucent);
}

TEST_F(VolumeHudScreen, FadesAwayAfterTheHoldOrAtOnceWithReducedMotion)
{
    hud.show(50, false, false, QString(), 0.2);
    spinFor(std::chrono::milliseconds(100));
    ASSERT_EQ(hud.state(), HudTimeline::State::Holding);
    EXPECT_EQ(hud.panel()->windowOpacity(), 1.0);

    ASSERT_TRUE(spinUntil([&] { return hud.state() == HudTimeline::State::Fading; },
                          std::chrono::seconds(2)));
    ASSERT_TRUE(
        spinUntil([&] { return hud.panel()->windowOpacity() < 0.9; }, std::chrono::seconds(2)));
    EXPECT_TRUE(hud.panel()->isVisible());

    hud.show(70, false, false, QString(), longHold);
    EXPECT_EQ(hud.state(), HudTimeline::State::Holding);
    EXPECT_EQ(hud.panel()->windowOpacity(), 1.0);

    hud.dismiss();
    EXPECT_EQ(hud.state(), HudTimeline::State::Fading);
    ASSERT_TRUE(spinUntil([&] { return hud.state() == HudTimeline::State::Hidden; },
                          std::chrono::seconds(2)));
    EXPECT_FALSE(hud.panel()->isVisible());
    spinFor(std::chrono::milliseconds(200));
    EXPECT_TRUE(near(grabScreen("hud-hidden").pixel(inside), backdrop.color()));

    DisplayOptions options;
    options.reduceMotion = true;
    hud.setDisplayOptions(options);
    hud.show(50, false, false, QString(), longHold);
    hud.dismiss();
    EXPECT_EQ(hud.state(), HudTimeline::State::Hidden) << "reduced motion hides in one step";
    EXPECT_FALSE(hud.panel()->isVisible());
}

// Watches the demonstration's fill on screen every 0.1 s and keeps each level it settles on,
// until it has seen every level and the wrap from full to empty. The demonstration starts at 40,
// steps to 20, then climbs by 20 every 0.6 s to 100 and wraps to 0. Under load a screen grab can
// take longer than a step, so a level may be missed once (it comes round again); none may appear
// out of the cycle's order.
TEST_F(VolumeHudScreen, DemonstrationCyclesTheLevel)
{
    // The fill of each level (0, 20, ... 100) is 33.2 px wide per 20.
    static constexpr int everyStep[] = {0, 1, 2, 3, 4, 5};
    const auto stepOf = [](double width) {
        for (int step = 0; step < 6; ++step)
            if (std::abs(width - step * 33.2) <= 1.5)
                return step;
        return -1;
    };
    std::vector<int> steps;
    bool wrapped = false;
    const auto seenEverLevel = [&steps] {
        return std::all_of(std::begin(everyStep), std::end(everyStep), [&steps](int step) {
            return std::find(steps.begin(), steps.end(), step) != steps.end();
        });
    };
    QTimer sampler;
    QObject::connect(&sampler, &QTimer::timeout, [&, this] {
        const QImage shot = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
        if (!near(shot.pixel(inside), capsule()))
            return; // not on screen yet
        const int step = stepOf(fillWidth(shot, 1.0));
        if (!steps.empty() && steps.back() == step)
            return;
        wrapped = wrapped || (!steps.empty() && step == 0 && steps.back() >= 4);
        steps.push_back(step);
        grabScreen(QStringLiteral("hud-demo-%1").arg(steps.size()));
        if ((wrapped && seenEverLevel()) || step < 0)
            qApp->exit(0);
    });
    sampler.start(100);
    // Only a demonstration that stopped stepping gets this far.
    QTimer::singleShot(30000, qApp, [] { qApp->exit(0); });
    EXPECT_EQ(runHudDemo(*qobject_cast<QApplication*>(qApp)), 0);

    EXPECT_TRUE(wrapped);
    EXPECT_TRUE(seenEverLevel());
    EXPECT_EQ(steps[0], 2) << "it starts at 40";
    for (size_t i = 1; i < steps.size(); ++i) {
        SCOPED_TRACE(i);
        ASSERT_GE(steps[i], 0) << "a fill between the levels";
        const int forward = (steps[i] - steps[i - 1] + 6) % 6;
        if (i == 1 && steps[0] == 2 && steps[1] == 1)
            continue; // the first step goes down to 20
        EXPECT_TRUE(forward == 1 || forward == 2) << steps[i - 1] << " to " << steps[i];
    }
}

} // namespace
