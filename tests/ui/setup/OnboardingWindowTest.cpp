// The setup window's rules, in-process against providers the test controls: the counts, the
// input-access step, a hand pick against later sweeps, and the two ways out.
#include "ui/setup/OnboardingWindow.h"

#include "common/QtPrinters.h"
#include "common/Wait.h"

#include <QApplication>
#include <QCheckBox>
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
    bool tray = true;

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
        p.trayAvailable = [this] { return tray; };
        return p;
    }
};

Window::Zones zonesNamed(const QStringList& names, std::optional<QString> recommended = {})
{
    return {names, {}, recommended};
}

// What the window handed over, in order.
struct Answers {
    explicit Answers(Window& window)
    {
        QObject::connect(&window, &Window::previewed,
                         [this](const std::optional<QString>& name) { previewed.append(name); });
        QObject::connect(&window, &Window::finished,
                         [this](const std::optional<QString>& name, bool atLogin) {
                             finished.append({name, atLogin});
                         });
        QObject::connect(&window, &Window::abandoned, [this] { ++abandoned; });
    }
    QList<std::optional<QString>> previewed;
    QList<std::pair<std::optional<QString>, bool>> finished;
    int abandoned = 0;
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

TEST(OnboardingWindow, TheModelLosesOnlyALeadingSonos)
{
    EXPECT_EQ(Window::shortModel(QStringLiteral("Sonos Arc")), QStringLiteral("Arc"));
    EXPECT_EQ(Window::shortModel(QStringLiteral("sonos One SL")), QStringLiteral("One SL"));
    EXPECT_EQ(Window::shortModel(QStringLiteral("Era 100")), QStringLiteral("Era 100"));
    EXPECT_EQ(Window::shortModel(QStringLiteral("SonosArc")), QStringLiteral("SonosArc"));
    EXPECT_EQ(Window::shortModel(std::nullopt), std::nullopt);
}

TEST(OnboardingWindow, OneSpeakerIsCountedInTheSingular)
{
    World world;
    world.sweeps = {zonesNamed({}), zonesNamed({"Den"}), zonesNamed({"Den", "Loft"})};
    Window window(world.providers());
    window.goTo(Window::Step::network);
    ASSERT_TRUE(spinUntil([&] { return showsText(window, "No speakers found yet"); }));
    QPushButton* again = button(window, "Search Again");
    ASSERT_NE(again, nullptr);
    again->click();
    EXPECT_TRUE(spinUntil([&] { return showsText(window, "Found 1 speaker"); }));
    EXPECT_EQ(button(window, "Search Again"), nullptr);
    window.goTo(Window::Step::speaker);
    EXPECT_TRUE(spinUntil([&] { return showsText(window, "Found 2 speakers"); }));
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
    Answers answers(window);
    window.goTo(Window::Step::speaker);
    ASSERT_TRUE(spinUntil([&] { return !window.isSearching(); }));
    auto* box = window.findChild<QComboBox*>();
    EXPECT_EQ(box->itemText(0), QStringLiteral("Den \u2014 Arc"));
    EXPECT_EQ(box->itemText(1), QStringLiteral("Loft"));
    EXPECT_EQ(window.chosenSpeaker(), QStringLiteral("Loft")) << "the likeliest is offered";
    EXPECT_TRUE(answers.previewed.isEmpty());

    box->setCurrentIndex(0);
    emit box->activated(0);
    EXPECT_EQ(answers.previewed, QList<std::optional<QString>>{QStringLiteral("Den")});

    // Back and on again sweeps again; the sweep still recommends Loft.
    button(window, "Back")->click();
    button(window, "Continue")->click();
    ASSERT_TRUE(spinUntil([&] { return world.swept == 2 && !window.isSearching(); }));
    EXPECT_EQ(window.chosenSpeaker(), QStringLiteral("Den"));
    EXPECT_EQ(box->currentText(), QStringLiteral("Den \u2014 Arc"));
}

TEST(OnboardingWindow, EscapeLeavesWithoutAnAnswerAndDoneAnswersOnce)
{
    World world;
    world.tray = false;
    world.sweeps = {zonesNamed({"Den"}, QStringLiteral("Den"))};
    {
        Window window(world.providers());
        Answers answers(window);
        window.show();
        QKeyEvent escape(QEvent::KeyPress, Qt::Key_Escape, Qt::NoModifier);
        QApplication::sendEvent(&window, &escape);
        EXPECT_FALSE(window.isVisible());
        EXPECT_EQ(answers.abandoned, 1);
        EXPECT_TRUE(answers.finished.isEmpty());
    }
    Window window(world.providers());
    Answers answers(window);
    window.show();
    window.goTo(Window::Step::speaker);
    ASSERT_TRUE(spinUntil([&] { return !window.isSearching(); }));
    window.goTo(Window::Step::ready);
    // Without a tray the ready step says where the panel is and how to get a tray icon.
    EXPECT_TRUE(showsText(window, "launch Velotide again"));
    EXPECT_TRUE(showsText(window, "gnome-shell-extension-appindicator"));
    window.findChild<QCheckBox*>()->setChecked(true);
    button(window, "Done")->click();
    window.finish(); // the demo's finish, after the user's
    ASSERT_EQ(answers.finished.size(), 1);
    EXPECT_EQ(answers.finished.at(0).first, QStringLiteral("Den"));
    EXPECT_TRUE(answers.finished.at(0).second);
    EXPECT_EQ(answers.abandoned, 0);
    EXPECT_FALSE(window.isVisible());
}

} // namespace
