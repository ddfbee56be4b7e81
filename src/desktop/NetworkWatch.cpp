#include "desktop/NetworkWatch.h"

#include <QNetworkInformation>

namespace {
bool isUsable(QNetworkInformation::Reachability reachability)
{
    return reachability == QNetworkInformation::Reachability::Site ||
           reachability == QNetworkInformation::Reachability::Online;
}
} // namespace

NetworkWatch::NetworkWatch(QObject* parent)
    : QObject(parent)
{
}

void NetworkWatch::start()
{
    if (!QNetworkInformation::loadBackendByFeatures(QNetworkInformation::Feature::Reachability))
        return;
    QNetworkInformation* info = QNetworkInformation::instance();
    connect(info, &QNetworkInformation::reachabilityChanged, this,
            [this](QNetworkInformation::Reachability r) { report(isUsable(r)); });
    if (info->reachability() != QNetworkInformation::Reachability::Unknown)
        report(isUsable(info->reachability()));
}

void NetworkWatch::report(bool usable)
{
    if (!usable)
        return;
    {
        const std::lock_guard guard(m_lock);
        if (!m_seenFirst) {
            m_seenFirst = true;
            return;
        }
    }
    emit changed();
}
