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
// until it has seen the eight steps below. The steps are counted, not timed: under load the
// demonstration's 0.6 s steps come late, and a fixed window would see fewer of them.
TEST_F(VolumeHudScreen, DemonstrationCyclesTheLevel)
{
    // 40 at first, then 20, 40, 60, 80, 100, 0, 20 ... every 0.6 s.
    const std::vector<double> expected{66.4, 33.2, 66.4, 99.6, 132.8, 166, 0, 33.2};
    std::vector<double> levels;
    QTimer sampler;
    QObject::connect(&sampler, &QTimer::timeout, [&, this] {
        const QImage shot = QGuiApplication::primaryScreen()->grabWindow(0).toImage();
        if (!near(shot.pixel(inside), capsule()))
            return; // not on screen yet
        const double width = fillWidth(shot, 1.0);
        if (levels.empty() || std::abs(levels.back() - width) > 1.5) {
            levels.push_back(width);
            grabScreen(QStringLiteral("hud-demo-%1").arg(levels.size()));
            if (levels.size() == expected.size())
                qApp->exit(0);
        }
    });
    sampler.start(100);
    // Only a demonstration that stopped stepping gets this far.
    QTimer::singleShot(30000, qApp, [] { qApp->exit(0); });
    EXPECT_EQ(runHudDemo(*qobject_cast<QApplication*>(qApp)), 0);

    ASSERT_EQ(levels.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_NEAR(levels[i], expected[i], 1.5) << "level " << i;
}

} // namespace
