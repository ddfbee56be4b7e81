// The overlay on an X server without a compositor: nothing can be translucent there, so the
// capsule is opaque and cut to shape; it turns translucent once a compositor starts.
#include "ScreenShots.h"
#include "common/Wait.h"
#include "desktop/Compositor.h"
#include "support/Log.h"
#include "ui/VolumeHUD.h"

#include <QProcess>

#include <gtest/gtest.h>

using namespace screen_shots;
using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

TEST(VolumeHudWithoutCompositor, DrawsAnOpaqueCapsuleUntilACompositorStarts)
{
    ASSERT_FALSE(isCompositorRunning());
    Backdrop backdrop(QColor(160, 40, 40));
    backdrop.show();
    spinFor(std::chrono::milliseconds(150));

    VolumeHUD hud;
    EXPECT_EQ(hud.material(), HudMaterial::OpaqueNoCompositor);
    Log::flush();
    EXPECT_TRUE(Log::tail(20).contains("HUD material: opaque (no compositor is running)"));

    hud.show(40, false, false, QString(), 60);
    spinFor(std::chrono::milliseconds(250));
    const QImage shot = grabScreen("hud-no-compositor-40");
    const QColor window = hud.panel()->palette().color(QPalette::Window);
    const QColor label = hud.panel()->palette().color(QPalette::WindowText);
    EXPECT_TRUE(near(shot.pixel(inside), window, 0));
    EXPECT_TRUE(near(shot.pixel(capsuleX + 1, capsuleY + 1), backdrop.color(), 0))
        << "the corner is cut away, not black";
    EXPECT_TRUE(near(shot.pixel(capsuleX + 228, capsuleY + 36), backdrop.color(), 0));
    EXPECT_TRUE(near(shot.pixel(capsuleX + 2, capsuleY + 19), window, 0))
        << "the rounded end reaches the edge at mid-height";
    const QColor track = blend(label, HudLook::tertiaryAlpha, window);
    EXPECT_NEAR(barWidth(shot, capsuleY + 19, capsuleX + 44, capsuleX + 214, label, track), 66.4,
                1.0);

    hud.dismiss();
    ASSERT_TRUE(spinUntil([&] { return hud.state() == HudTimeline::State::Hidden; }));

    QProcess compositor;
    compositor.start("xcompmgr", {});
    ASSERT_TRUE(compositor.waitForStarted());
    ASSERT_TRUE(spinUntil([] { return isCompositorRunning(); }));
    hud.show(40, false, false, QString(), 60);
    EXPECT_EQ(hud.material(), HudMaterial::Translucent) << "re-checked when it comes back";
    spinFor(std::chrono::milliseconds(250));
    EXPECT_TRUE(near(grabScreen("hud-compositor-started-40").pixel(inside),
                     blend(window, 0.86, backdrop.color())));

    compositor.terminate();
    compositor.waitForFinished();
}

} // namespace
