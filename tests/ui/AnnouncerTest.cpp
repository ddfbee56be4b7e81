// What a screen reader hears: the overlay's announcements travel over a private AT-SPI bus
// with the real registry daemon, and are read back the way Orca reads them (an
// accessible-name change, then the object's Name).
#include "common/QtPrinters.h"
#include "common/Wait.h"
#include "ui/VolumeHUD.h"

#include <QAccessible>
#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/prctl.h>

using testing_support::spinFor;
using testing_support::spinUntil;

namespace {

const QString busLauncher = QStringLiteral("/usr/libexec/at-spi-bus-launcher");

// The AT-SPI bus launcher on the session bus of the test's wrapper: it starts the
// accessibility bus and, when first asked, the registry daemon. Accessibility is switched on as
// a desktop does it, by setting org.a11y.Status.IsEnabled; a screen reader announces itself
// with ScreenReaderEnabled.
class AccessibilityBus {
public:
    bool start()
    {
        if (!QFileInfo::exists(busLauncher))
            return false;
        qputenv("XDG_RUNTIME_DIR", m_runtime.path().toLocal8Bit());
        m_launcher.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGTERM); });
        m_launcher.start(busLauncher, {"--launch-immediately"});
        if (!m_launcher.waitForStarted())
            return false;
        for (int attempt = 0; attempt < 100; ++attempt) {
            if (setStatus("IsEnabled", true))
                return true;
            QThread::msleep(50);
        }
        return false;
    }
    ~AccessibilityBus()
    {
        m_launcher.terminate();
        m_launcher.waitForFinished(2000);
    }

    static bool setStatus(const char* name, bool on)
    {
        QProcess send;
        send.start("dbus-send", {"--session", "--print-reply", "--dest=org.a11y.Bus",
                                 "/org/a11y/bus", "org.freedesktop.DBus.Properties.Set",
                                 "string:org.a11y.Status", QStringLiteral("string:%1").arg(name),
                                 on ? "variant:boolean:true" : "variant:boolean:false"});
        return send.waitForFinished(5000) && send.exitStatus() == QProcess::NormalExit &&
               send.exitCode() == 0;
    }

private:
    QTemporaryDir m_runtime;
    QProcess m_launcher;
};

bool busRunning = false;

// Listens like a screen reader: on every accessible-name change it asks the object for its
// name, and keeps what it heard in order.
class ScreenReader : public QObject {
    Q_OBJECT
public:
    explicit ScreenReader(const QString& address)
        : m_bus(QDBusConnection::connectToBus(address, QStringLiteral("screen-reader")))
    {
        m_bus.connect(QString(), QString(), "org.a11y.atspi.Event.Object", "PropertyChange", this,
                      SLOT(onPropertyChange(QDBusMessage)));
        QDBusMessage call =
            QDBusMessage::createMethodCall("org.a11y.atspi.Registry", "/org/a11y/atspi/registry",
                                           "org.a11y.atspi.Registry", "RegisterEvent");
        call << QStringLiteral("object:property-change:accessible-name") << QStringList()
             << QString();
        registered = m_bus.call(call).type() == QDBusMessage::ReplyMessage;
    }
    ~ScreenReader() override { QDBusConnection::disconnectFromBus("screen-reader"); }

    bool registered = false;
    std::vector<QString> heard;

private slots:
    void onPropertyChange(const QDBusMessage& event)
    {
        if (event.arguments().value(0).toString() != QLatin1String("accessible-name"))
            return;
        QDBusMessage get = QDBusMessage::createMethodCall(event.service(), event.path(),
                                                          "org.freedesktop.DBus.Properties", "Get");
        get << QStringLiteral("org.a11y.atspi.Accessible") << QStringLiteral("Name");
        auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(get), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this](QDBusPendingCallWatcher* w) {
                    const QDBusPendingReply<QDBusVariant> reply = *w;
                    if (!reply.isError())
                        heard.push_back(reply.value().variant().toString());
                    w->deleteLater();
                });
    }

private:
    QDBusConnection m_bus;
};

TEST(Announcements, SilentWithoutAScreenReaderThenBurstSpeaksFirstAndLastLevelsAndMuted)
{
    if (!busRunning)
        GTEST_SKIP() << "no AT-SPI bus launcher (at-spi2-core) to listen through";
    VolumeHUD hud;
    ASSERT_TRUE(spinUntil([] { return QAccessible::isActive(); }, std::chrono::seconds(5)))
        << "accessibility is on for the session";
    const QDBusMessage address = QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
        "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress"));
    const auto reader = std::make_unique<ScreenReader>(address.arguments().value(0).toString());
    ASSERT_TRUE(reader->registered);
    // The application learns of the new listener from the registry's signal.
    spinFor(std::chrono::milliseconds(500));
    ASSERT_FALSE(hud.displayOptions().screenReader);
    hud.show(30, false, false, QStringLiteral("Den"), 60);
    hud.show(30, true, false, QStringLiteral("Den"), 60);
    spinFor(std::chrono::milliseconds(600));
    EXPECT_TRUE(reader->heard.empty()) << "silent while no screen reader is on";

    // As Orca does when it starts; the overlay learns of it from the bus.
    ASSERT_TRUE(AccessibilityBus::setStatus("ScreenReaderEnabled", true));
    ASSERT_TRUE(spinUntil([&] { return hud.displayOptions().screenReader; }));
    for (int volume : {32, 34, 36})
        hud.show(volume, false, false, QStringLiteral("Den"), 60);
    ASSERT_TRUE(spinUntil([&] { return reader->heard.size() == 2; }, std::chrono::seconds(2)));
    EXPECT_EQ(reader->heard,
              (std::vector<QString>{"Den, volume 32 percent", "Den, volume 36 percent"}));

    // Dismissed before the event loop turns again: the repeat that muting arms is due
    // 0.3 s later, and a busy machine can take longer than that to pass the first
    // announcement to the reader.
    hud.show(36, true, false, QStringLiteral("Den"), 60);
    hud.dismiss();
    ASSERT_TRUE(spinUntil([&] { return reader->heard.size() == 3; }, std::chrono::seconds(2)));
    EXPECT_EQ(reader->heard[2], "Den, muted");
    spinFor(std::chrono::milliseconds(600));
    EXPECT_EQ(reader->heard.size(), 3u) << "dismissing drops the pending repeat";
}

} // namespace

int main(int argc, char** argv)
{
    AccessibilityBus accessibilityBus;
    busRunning = accessibilityBus.start();
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}

#include "AnnouncerTest.moc"
