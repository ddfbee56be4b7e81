#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QUrl>

#include <chrono>
#include <optional>

class QNetworkAccessManager;
class QNetworkReply;

// What the update feed says. The feed is a small JSON object:
//   {"version": "1.5.0", "page": "https://example.org/velotide/1.5.0", "note": "Faster start"}
// "version" is dotted numbers and required; "page" (where to read about the release) and
// "note" (one line) may be missing.
struct UpdateFeed {
    QString version;
    QUrl page;
    QString note;
};

// Nothing (with the reason in `error`) when the bytes are not such a feed.
std::optional<UpdateFeed> parseUpdateFeed(const QByteArray& bytes, QString* error = nullptr);
// Below zero, zero or above zero as `a` is older than, the same as or newer than `b`; dotted
// numbers, a missing part counting as zero ("1.2" equals "1.2.0").
int compareVersions(const QString& a, const QString& b);

// Tells the user when a newer version exists. Packages are updated by the distribution's
// package manager, so nothing is downloaded or replaced here: a check reads the feed the
// build names, and `newerVersion` carries what the user needs to know. Without a feed
// address in the build there are no checks at all. Main thread only; the network work is
// asynchronous, capped in size and time.
class Updates : public QObject {
    Q_OBJECT
public:
    struct Options {
        QUrl feed; // empty: updates are disabled in this build
        QString currentVersion;
        qint64 sizeCap = 64 * 1024;
        std::chrono::milliseconds timeLimit = std::chrono::seconds(15);
    };

    enum class Trigger { automatic, user };

    explicit Updates(Options options, QObject* parent = nullptr);
    ~Updates() override;

    // Logs the feed in use, or that updates are disabled; checks at once when `automatic`.
    void start(bool automatic);
    // Whether this build has a feed to check (the menu offers updates only then).
    bool isRunning() const { return !m_options.feed.isEmpty(); }
    bool automaticallyChecks() const { return m_automatic; }
    void setAutomaticallyChecks(bool on);
    // A check the user asked for; a check already under way answers for it.
    void checkNow();

signals:
    void newerVersion(const UpdateFeed& feed);
    // A check the user asked for found nothing newer.
    void upToDate();
    // A check the user asked for failed; `reason` is for the user.
    void checkFailed(const QString& reason);

private:
    void check(Trigger trigger);
    void finish(QNetworkReply* reply);
    void fail(const QString& logReason, const QString& userReason);

    Options m_options;
    bool m_automatic = false;
    Trigger m_trigger = Trigger::automatic;
    bool m_tooLarge = false;
    bool m_timedOut = false;
    QNetworkAccessManager* m_network = nullptr;
    QPointer<QNetworkReply> m_reply;
};

// Shows a desktop notification through org.freedesktop.Notifications on the session bus,
// without waiting for its answer. Nothing happens without a notification server.
void notifyDesktop(const QString& summary, const QString& body);
