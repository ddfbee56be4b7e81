// The panel drawn on a real X server in a light and a dark palette, saved for a person to
// look at, and checked by a few pixels that show whether the palette and the art arrived.
#include "ScreenShots.h"
#include "common/Wait.h"
#include "ui/panel/MenuBarPanel.h"
#include "ui/panel/PanelLook.h"

#include <QApplication>
#include <QBuffer>
#include <QDir>
#include <QPainter>
#include <QStyle>
#include <QStyleFactory>

#include <gtest/gtest.h>

#include <functional>

using namespace screen_shots;
using testing_support::spinUntil;

namespace {

const QColor artColor(214, 84, 40);

QByteArray coverArt()
{
    QImage image(120, 120, QImage::Format_RGB32);
    image.fill(artColor);
    QPainter(&image).fillRect(0, 90, 120, 30, QColor(40, 40, 60));
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

// How many pixels of the warning line are drawn in the warning's orange.
int warningPixels(const QImage& shot, const QPalette& palette)
{
    const QColor warning = panel_look::color(palette, panel_look::Shade::warning);
    int count = 0;
    for (int y = 198; y < 216; ++y)
        count += countNear(shot, y, 20, 319, warning, 40);
    return count;
}

PanelSnapshot connectedWithWarning()
{
    PanelSnapshot s;
    s.connected = true;
    s.speakerName = QStringLiteral("Living Room");
    s.volume = 35;
    s.night = true;
    s.speech = false;
    s.title = QStringLiteral("So What");
    s.subtitle = QStringLiteral("Miles Davis");
    s.detail = QStringLiteral("Kind of Blue \u2014 Living Room");
    s.isPlaying = true;
    s.canControlTransport = true;
    s.artworkIdentity = QStringLiteral("kind-of-blue");
    s.artwork = coverArt();
    s.warning = QStringLiteral("Volume keys only redirect while this computer plays to the TV");
    s.fix = PanelFix::chooseOutput;
    s.speakerChoices =
        QList<SpeakerChoice>{{"Living Room", "Living Room", Settings::Route::Optical}};
    s.outputChoices = QStringList{QStringLiteral("Built-in Audio")};
    return s;
}

PanelSnapshot notConnected()
{
    PanelSnapshot s;
    s.speakerName = QStringLiteral("Den");
    s.armed = false;
    s.armedMessage = QStringLiteral("The speaker is not answering");
    return s;
}

QPalette darkPalette()
{
    QPalette p;
    p.setColor(QPalette::Window, QColor(40, 40, 44));
    p.setColor(QPalette::WindowText, QColor(236, 236, 236));
    p.setColor(QPalette::Base, QColor(28, 28, 30));
    p.setColor(QPalette::Text, QColor(236, 236, 236));
    p.setColor(QPalette::Button, QColor(58, 58, 62));
    p.setColor(QPalette::ButtonText, QColor(236, 236, 236));
    p.setColor(QPalette::Highlight, QColor(10, 132, 255));
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(100, 170, 255));
    return p;
}

class PanelScreen : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override
    {
        QApplication::setPalette(GetParam() ? darkPalette()
                                            : QApplication::style()->standardPalette());
    }
    void TearDown() override { QApplication::setPalette(QApplication::style()->standardPalette()); }

    // The panel's picture once `ready` holds for it (cover art is decoded on a worker), in
    // logical pixels; saved at its full size for a person to look at.
    QImage showAndGrab(const PanelSnapshot& snapshot, const QString& name,
                       const std::function<bool(const QImage&)>& ready)
    {
        panel.apply(snapshot);
        panel.present();
        QImage shot;
        const qreal scale = panel.window()->devicePixelRatioF();
        EXPECT_TRUE(spinUntil([&] {
            shot = panel.window()->grab().toImage().convertToFormat(QImage::Format_RGB32);
            shot.setDevicePixelRatio(1);
            shot = shot.scaled(shot.size() / scale, Qt::IgnoreAspectRatio, Qt::FastTransformation);
            return panel.window()->isVisible() && ready(shot);
        })) << name.toStdString();
        panel.window()->grab().save(QStringLiteral(VELOTIDE_ARTIFACTS_DIR "/%1-%2-x%3.png")
                                        .arg(name, GetParam() ? "dark" : "light")
                                        .arg(scale));
        return shot;
    }

    Settings saved = [] {
        Settings s;
        s.speaker = QStringLiteral("Living Room");
        return s;
    }();
    MenuBarPanel panel{saved};
};

TEST_P(PanelScreen, ConnectedWithArtWarningAndSettingsThenNotConnected)
{
    panel.setSettingsVisible(true);
    panel.applyDisclosure(false);
    const QImage connected =
        showAndGrab(connectedWithWarning(), "panel-connected", [](const QImage& shot) {
            return near(shot.pixel(20 + 42, 14 + 30), artColor);
        });
    const QPalette palette = panel.window()->palette();
    EXPECT_EQ(connected.size(), QSize(340, 198 + 40 + 66 + 8 + 45));
    EXPECT_TRUE(near(connected.pixel(300, 8), palette.color(QPalette::Window)))
        << "the panel's ground is the palette's window";
    EXPECT_GT(warningPixels(connected, palette), 20) << "the warning line is drawn in orange";
    panel.close();
    panel.setSettingsVisible(false);
    panel.applyDisclosure(false);

    const QImage lost = showAndGrab(notConnected(), "panel-not-connected", [](const QImage& shot) {
        return !near(shot.pixel(20 + 42, 14 + 30), artColor);
    });
    EXPECT_GT(warningPixels(lost, palette), 10) << "\"Not connected\" in orange";
}

INSTANTIATE_TEST_SUITE_P(Palettes, PanelScreen, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "dark" : "light"; });

} // namespace

int main(int argc, char** argv)
{
    QApplication app(argc, argv);
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QDir().mkpath(QStringLiteral(VELOTIDE_ARTIFACTS_DIR));
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
