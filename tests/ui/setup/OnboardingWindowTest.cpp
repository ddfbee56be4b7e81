// The setup window's rules that the process test does not reach, in-process against providers
// the test controls: the input-access step, a hand pick against later sweeps, and leaving
// early.
#include "ui/setup/OnboardingWindow.h"

#include "common/QtPrinters.h"
#include "common/Wait.h"

#include <QApplication>
#include <QComboBox>
#include <QKeyEvent>
#include <QLabel>
#include <QPushButton>

#include <gtest/gtest.h>

using testing_support::spinUntil;
using Window = OnboardingWindow;

namespace {

struct World {
    Window::InputAccess access;
    QList<Window::Zones> sweeps; // answered in turn, the last one again and again
    int swept = 0;

    Window::Providers providers()
    {
        Window::Providers p;
        p.inputAccess = [this] { return access; };
        p.zones = [this] {
            const Window::Zones zones = sweeps.value(std::min<int>(swept++, sweeps.size() - 1));
            return QtFuture::makeReadyFuture(zones);
        };
        p.readyState = [] { return Window::ReadyState::ready; };
        p.loginEnabled = [] { return false; };
        p.trayAvailable = [] { return true; };
        return p;
    }
};

bool showsText(const Window& window, const QString& text)
{
    for (const QLabel* label : window.findChildren<QLabel*>())
        if (label->isVisibleTo(&window) && label->text().contains(text))
            return true;
    return false;
}

QPushButton* button(const Window& window, const QString& text)
{
    for (QPushButton* b : window.findChildren<QPushButton*>())
        if (b->isVisibleTo(&window) && b->text() == text)
            return b;
    return nullptr;
}

TEST(OnboardingWindow, ContinueWithoutItOnlyWhileInputAccessIsMissing)
{
    World world;
    Window window(world.providers());
    window.goTo(Window::Step::accessibility);
    EXPECT_TRUE(showsText(window, "Waiting for input access"));
    EXPECT_NE(button(window, "Continue without it"), nullptr);
    EXPECT_TRUE(showsText(window, "sudo systemctl enable --now velotide-keyd"));

    // A display that answers but a grab the desktop refused is said plainly.
    world.access = {true, false, true};
    window.updateStatus();
    EXPECT_TRUE(showsText(window, "This desktop holds the volume keys itself"));
    EXPECT_NE(button(window, "Continue without it"), nullptr);
    EXPECT_FALSE(showsText(window, "Granted"));

    // Capture that really works: granted, and the step moves on by itself.
    world.access = {true, true, false};
    window.updateStatus();
    EXPECT_TRUE(showsText(window, "Granted \u2014 thank you"));
    EXPECT_EQ(button(window, "Continue without it"), nullptr);
    EXPECT_TRUE(spinUntil([&] { return window.step() == Window::Step::network; }));

    // Arriving with access already there waits for the user.
    window.goTo(Window::Step::accessibility);
    testing_support::spinFor(std::chrono::milliseconds(1500));
    EXPECT_EQ(window.step(), Window::Step::accessibility);
}

TEST(OnboardingWindow, AHandPickOutlivesLaterSweeps)
{
    World world;
    Window::Zones zones{{"Den", "Loft"}, {{"Den", "Sonos Arc"}}, QStringLiteral("Loft")};
    world.sweeps = {zones};
    Window window(world.providers());
    QList<std::optional<QString>> previewed;
    QObject::connect(&window, &Window::previewed,
                     [&](const std::optional<QString>& name) { previewed.append(name); });
    window.goTo(Window::Step::speaker);
    ASSERT_TRUE(spinUntil([&] { return !window.isSearching(); }));
    auto* box = window.findChild<QComboBox*>();
    EXPECT_EQ(box->itemText(0), QStringLiteral("Den \u2014 Arc"));
    EXPECT_EQ(box->itemText(1), QStringLiteral("Loft"));
    EXPECT_EQ(window.chosenSpeaker(), QStringLiteral("Loft")) << "the likeliest is offered";
    EXPECT_TRUE(previewed.isEmpty());

    box->setCurrentIndex(0);
    emit box->activated(0);
    EXPECT_EQ(previewed, QList<std::optional<QString>>{QStringLiteral("Den")});

    // Back and on again sweeps again; the sweep still recommends Loft.
    button(window, "Back")->click();
    button(window, "Continue")->click();
    ASSERT_TRUE(spinUntil([&] { return world.swept == 2 && !window.isSearching(); }));
    EXPECT_EQ(window.chosenSpeaker(), QStringLiteral("Den"));
    EXPECT_EQ(box->currentText(), QStringLiteral("Den \u2014 Arc"));
}

// Closing before the end keeps what is in place and answers nothing; the end itself is the
// process test's.
TEST(OnboardingWindow, EscapeLeavesWithoutAnAnswer)
{
    World world;
    Window window(world.providers());
    int finished = 0;
    int abandoned = 0;
    QObject::connect(&window, &Window::finished, [&] { ++finished; });
    QObject::connect(&window, &Window::abandoned, [&] { ++abandoned; });
    window.show();
    QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
    QApplication::sendEvent(&window, &escape);
    EXPECT_FALSE(window.isVisible());
    EXPECT_EQ(abandoned, 1);
    EXPECT_EQ(finished, 0);
}

// The quieter lines take their colour from the palette in use, also when it changes to a dark
// one after the window was made.
TEST(OnboardingWindow, TheStepCounterStaysLegibleWhenThePaletteTurnsDark)
{
    World world;
    Window window(world.providers());
    window.show();
    const QPalette before = QApplication::palette();
    QPalette dark = before;
    dark.setColor(QPalette::Window, QColor(40, 40, 44));
    dark.setColor(QPalette::WindowText, QColor(235, 235, 240));
    QApplication::setPalette(dark);
    // The application hands a new palette to its windows on a later turn of the event loop.
    ASSERT_TRUE(spinUntil(
        [&] { return window.palette().color(QPalette::Window) == dark.color(QPalette::Window); }));
    QLabel* counter = nullptr;
    for (QLabel* label : window.findChildren<QLabel*>())
        if (label->text().startsWith(QStringLiteral("Step 1 of")))
            counter = label;
    ASSERT_NE(counter, nullptr);
    EXPECT_GT(counter->palette().color(QPalette::WindowText).lightnessF(), 0.5);
    QApplication::setPalette(before);
}

} // namespace
