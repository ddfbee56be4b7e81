#include "Household.h"

namespace emulator {

Player* Household::player(const QString& host)
{
    for (Player& p : players) {
        if (p.host == host)
            return &p;
    }
    return nullptr;
}

const Player* Household::player(const QString& host) const
{
    return const_cast<Household*>(this)->player(host);
}

Player* Household::playerByUid(const QString& uid)
{
    for (Player& p : players) {
        if (p.uid.compare(uid, Qt::CaseInsensitive) == 0)
            return &p;
    }
    return nullptr;
}

const Player* Household::playerByUid(const QString& uid) const
{
    return const_cast<Household*>(this)->playerByUid(uid);
}

QString Household::bondedTo(const QString& uid) const
{
    const Player* p = playerByUid(uid);
    if (!p)
        return {};
    if (!p->stereoPairOf.isEmpty())
        return p->stereoPairOf;
    for (const Player& primary : players) {
        if (primary.satellites.contains(p->uid))
            return primary.uid;
    }
    return {};
}

Group* Household::groupOf(const QString& uid)
{
    const QString bonded = bondedTo(uid);
    const QString zone = bonded.isEmpty() ? uid : bonded;
    for (Group& g : groups) {
        if (g.members.contains(zone, Qt::CaseInsensitive))
            return &g;
    }
    return nullptr;
}

const Group* Household::groupOf(const QString& uid) const
{
    return const_cast<Household*>(this)->groupOf(uid);
}

bool Household::isCoordinator(const QString& uid) const
{
    const Group* g = groupOf(uid);
    return g && g->coordinator.compare(uid, Qt::CaseInsensitive) == 0;
}

QString Household::coordinatorOf(const QString& uid) const
{
    const Group* g = groupOf(uid);
    return g ? g->coordinator : uid;
}

} // namespace emulator
