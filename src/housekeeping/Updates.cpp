#include "housekeeping/Updates.h"

#include "support/Log.h"
#include "support/UiText.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>
#include <QVariantMap>

namespace {

constexpr int kMaxRedirects = 5;

// Dotted numbers only; nothing for anything else.
std::optional<QList<int>> versionParts(const QString& version)
{
    QList<int> parts;
    for (const QString& part : version.split(u'.')) {
        bool ok = false;
        const int value = part.toInt(&ok);
        if (!ok || value < 0 || part.startsWith(u'+'))
            return std::nullopt;
        parts.append(value);
    }
    return parts;
}

} // namespace

std::optional<UpdateFeed> parseUpdateFeed(const QByteArray& bytes, QString* error)
{
    const auto refuse = [error](const QString& why) {
        if (error)
            *error = why;
        return std::nullopt;
    };
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return refuse(parseError.errorString());
    if (!document.isObject())
        return refuse(QStringLiteral("not a JSON object"));
    const QJsonObject object = document.object();
    UpdateFeed feed;
    feed.version = object.value(QLatin1String("version")).toString();
    if (!versionParts(feed.version))
        return refuse(QStringLiteral("no version in dotted numbers"));
    const QUrl page(object.value(QLatin1String("page")).toString(), QUrl::StrictMode);
    if (page.isValid() &&
        (page.scheme() == QLatin1String("https") || page.scheme() == QLatin1String("http")))
        feed.page = page;
    feed.note = object.value(QLatin1String("note")).toString().simplified().left(200);
    return feed;
}

int compareVersions(const QString& a, const QString& b)
{
    const QList<int> left = versionParts(a).value_or(QList<int>{});
    const QList<int> right = versionParts(b).value_or(QList<int>{});
    for (qsizetype i = 0; i < std::max(left.size(), right.size()); ++i) {
        const int l = left.value(i, 0);
        const int r = right.value(i, 0);
        if (l != r)
            return l < r ? -1 : 1;
    }
    return 0;
}

Updates::Updates(Options options, QObject* parent)
    : QObject(parent)
    , m_options(std::move(options))
{
}

Updates::~Updates()
{
    if (m_reply)
        m_reply->abort();
}

void Updates::start(bool automatic)
{
    m_automatic = automatic;
    if (!isRunning()) {
        Log::info(QStringLiteral("updates disabled: no update feed in this build"));
        return;
    }
    Log::info(QStringLiteral("update checks started, feed ") + m_options.feed.toString());
    if (m_automatic)
        check(Trigger::automatic);
}

void Updates::setAutomaticallyChecks(bool on)
{
    m_automatic = on;
    Log::info(QStringLiteral("automatic update checks: ") +
              (on ? QStringLiteral("true") : QStringLiteral("false")));
}

void Updates::checkNow()
{
    if (!isRunning()) {
        Log::info(QStringLiteral("update check requested but updates are disabled"));
        return;
    }
    check(Trigger::user);
}

void Updates::check(Trigger trigger)
{
    if (trigger == Trigger::user)
        m_trigger = Trigger::user;
    if (m_reply)
        return;
    m_trigger = trigger;
    m_tooLarge = false;
    m_timedOut = false;
    if (!m_network)
        m_network = new QNetworkAccessManager(this);

    QNetworkRequest request(m_options.feed);
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    request.setMaximumRedirectsAllowed(kMaxRedirects);
    request.setAttribute(QNetworkRequest::CacheLoadControlAttribute,
                         QNetworkRequest::AlwaysNetwork);
    QNetworkReply* reply = m_network->get(request);
    m_reply = reply;
    connect(reply, &QNetworkReply::downloadProgress, reply, [this, reply](qint64 received) {
        // A feed is a few hundred bytes; anything near the cap is not one.
        if (received > m_options.sizeCap && !m_tooLarge) {
            m_tooLarge = true;
            reply->abort();
        }
    });
    QTimer::singleShot(m_options.timeLimit, reply, [this, reply] {
        m_timedOut = true;
        reply->abort();
    });
    connect(reply, &QNetworkReply::finished, this, [this, reply] { finish(reply); });
}

void Updates::finish(QNetworkReply* reply)
{
    reply->deleteLater();
    m_reply = nullptr;
    if (m_tooLarge) {
        fail(QStringLiteral("the feed is larger than %1 bytes").arg(m_options.sizeCap),
             uiText("The update feed is not valid."));
        return;
    }
    if (m_timedOut) {
        fail(
            QStringLiteral("no answer within %1 s")
                .arg(std::chrono::duration_cast<std::chrono::seconds>(m_options.timeLimit).count()),
            uiText("The update server did not answer in time."));
        return;
    }
    if (reply->error() != QNetworkReply::NoError) {
        fail(reply->errorString(), uiText("The update server could not be reached."));
        return;
    }
    QString why;
    const std::optional<UpdateFeed> feed = parseUpdateFeed(reply->readAll(), &why);
    if (!feed) {
        fail(why, uiText("The update feed is not valid."));
        return;
    }
    if (compareVersions(feed->version, m_options.currentVersion) > 0) {
        Log::info(QStringLiteral("update available: ") + feed->version);
        emit newerVersion(*feed);
        return;
    }
    Log::info(QStringLiteral("no newer version (feed has %1)").arg(feed->version));
    if (m_trigger == Trigger::user)
        emit upToDate();
}

void Updates::fail(const QString& logReason, const QString& userReason)
{
    Log::info(QStringLiteral("update check failed: ") + logReason);
    if (m_trigger == Trigger::user)
        emit checkFailed(userReason);
}

void notifyDesktop(const QString& summary, const QString& body)
{
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.Notifications"),
        QStringLiteral("/org/freedesktop/Notifications"),
        QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("Notify"));
    call << QStringLiteral("Velotide") << 0u << QStringLiteral("com.brindlewerk.velotide")
         << summary << body << QStringList() << QVariantMap() << -1;
    // Nobody waits for the answer: without a server the call just fails.
    QDBusConnection::sessionBus().asyncCall(call);
}
