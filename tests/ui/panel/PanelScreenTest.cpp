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

using namespace screen_shots;
using testing_support::spinFor;
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

    QImage showAndGrab(const PanelSnapshot& snapshot, const QString& name)
    {
        panel.apply(snapshot);
        panel.present();
        EXPECT_TRUE(spinUntil([&] { return panel.window()->isVisible(); }));
        spinFor(std::chrono::milliseconds(150));
        QImage shot = panel.window()->grab().toImage().convertToFormat(QImage::Format_RGB32);
        const qreal scale = panel.window()->devicePixelRatioF();
        shot.save(QStringLiteral(VELOTIDE_ARTIFACTS_DIR "/%1-%2-x%3.png")
                      .arg(name, GetParam() ? "dark" : "light")
                      .arg(scale));
        shot.setDevicePixelRatio(1);
        // Logical coordinates from here on.
        return shot.scaled(shot.size() / scale, Qt::IgnoreAspectRatio, Qt::FastTransformation);
    }

    Settings saved = [] {
        Settings s;
        s.speaker = QStringLiteral("Living Room");
        return s;
    }();
    MenuBarPanel panel{saved};
};

TEST_P(PanelScreen, ConnectedWithArtAndWarningThenNotConnected)
{
    const QImage connected = showAndGrab(connectedWithWarning(), "panel-connected");
    const QPalette palette = panel.window()->palette();
    EXPECT_EQ(connected.size(), QSize(340, 198 + 40 + 45));
    EXPECT_TRUE(near(connected.pixel(300, 8), palette.color(QPalette::Window)))
        << "the panel's ground is the palette's window";
    EXPECT_TRUE(near(connected.pixel(20 + 42, 14 + 30), artColor)) << "the cover art is drawn";
    const QColor warning = panel_look::color(palette, panel_look::Shade::warning);
    int warm = 0;
    for (int y = 198; y < 216; ++y)
        warm += countNear(connected, y, 20, 319, warning, 40);
    EXPECT_GT(warm, 20) << "the warning line is drawn in orange";
    panel.close();
    spinFor(std::chrono::milliseconds(300));

    const QImage lost = showAndGrab(notConnected(), "panel-not-connected");
    EXPECT_FALSE(near(lost.pixel(20 + 42, 14 + 30), artColor)) << "the art gave way to a symbol";
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
