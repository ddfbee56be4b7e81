// The sources are real: GNOME settings through the gsettings tool (GLib's key-file back end
// in a private folder), and a settings portal on the private session bus, served by this
// process over a connection of its own.
#include "desktop/ColorScheme.h"

#include "common/Wait.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QPalette>
#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using testing_support::spinFor;
using testing_support::spinUntil;
using Preference = ColorScheme::Preference;

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");

class Portal : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Settings")
public:
    uint colorScheme = 0;
    bool knowsReadOne = true; // older portals know only Read

public slots:
    QDBusVariant ReadOne(const QString&, const QString&)
    {
        if (!knowsReadOne)
            sendErrorReply(QDBusError::UnknownMethod, QStringLiteral("no ReadOne"));
        return QDBusVariant(colorScheme);
    }
    QDBusVariant Read(const QString&, const QString&)
    {
        return QDBusVariant(QVariant::fromValue(QDBusVariant(colorScheme)));
    }

signals:
    void SettingChanged(const QString& group, const QString& key, const QDBusVariant& value);
};

void set(const QString& key, const QString& value)
{
    ASSERT_EQ(QProcess::execute("gsettings", {"set", "org.gnome.desktop.interface", key, value}),
              0);
}

TEST(ColorSchemeTest, TheFirstSourceThatStatesAPreferenceWins)
{
    QTemporaryDir config;
    qputenv("GSETTINGS_BACKEND", "keyfile");
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    QDBusConnection portalBus =
        QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("portal"));
    Portal portal;
    ASSERT_TRUE(portalBus.registerObject("/org/freedesktop/portal/desktop", &portal,
                                         QDBusConnection::ExportAllSlots |
                                             QDBusConnection::ExportAllSignals));

    ColorScheme scheme;
    std::vector<std::pair<Preference, bool>> seen;
    QObject::connect(&scheme, &ColorScheme::changed,
                     [&] { seen.emplace_back(scheme.preference(), scheme.isDark()); });
    const auto becomes = [&](Preference preference, bool dark) {
        const std::pair expected{preference, dark};
        return spinUntil([&] { return !seen.empty() && seen.back() == expected; });
    };

    // Nothing stated: the application palette decides.
    QPalette dark;
    dark.setColor(QPalette::Window, Qt::black);
    dark.setColor(QPalette::WindowText, Qt::white);
    QGuiApplication::setPalette(dark);
    EXPECT_TRUE(becomes(Preference::None, true));
    QGuiApplication::setPalette(QPalette());
    EXPECT_TRUE(becomes(Preference::None, false));

    // A dark GTK theme. The monitor cannot be seen to start, so the theme is switched until
    // it reports the switch.
    ASSERT_TRUE(spinUntil([&] {
        set("gtk-theme", "'Adwaita'");
        set("gtk-theme", "'Adwaita-dark'");
        spinFor(std::chrono::milliseconds(200));
        return scheme.isDark();
    }));
    EXPECT_TRUE(becomes(Preference::Dark, true));
    // GNOME's colour scheme goes before the theme.
    set("color-scheme", "'prefer-light'");
    EXPECT_TRUE(becomes(Preference::Light, false));

    // An older portal, asked through Read.
    portal.colorScheme = 1;
    portal.knowsReadOne = false;
    ASSERT_TRUE(portalBus.registerService(portalService));
    EXPECT_TRUE(becomes(Preference::Dark, true));
    // "No preference" hands over to GNOME again.
    emit portal.SettingChanged("org.freedesktop.appearance", "color-scheme", QDBusVariant(0u));
    EXPECT_TRUE(becomes(Preference::Light, false));

    // A newer portal, asked through ReadOne; without the portal, GNOME decides.
    ASSERT_TRUE(portalBus.unregisterService(portalService));
    portal.knowsReadOne = true;
    ASSERT_TRUE(portalBus.registerService(portalService));
    EXPECT_TRUE(becomes(Preference::Dark, true));
    ASSERT_TRUE(portalBus.unregisterService(portalService));
    EXPECT_TRUE(becomes(Preference::Light, false));
    QDBusConnection::disconnectFromBus(QStringLiteral("portal"));
}

} // namespace

#include "ColorSchemeTest.moc"
