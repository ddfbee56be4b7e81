#include "CoverArt.h"

#include <QString>

#include <optional>

namespace emulator {
namespace {

// One parameter of a query ("s=1&u=…"), percent-decoded; absent when not there.
std::optional<QString> queryValue(const QByteArray& query, const QByteArray& name)
{
    for (const QByteArray& pair : query.split('&')) {
        const qsizetype equals = pair.indexOf('=');
        if (equals > 0 && pair.left(equals) == name)
            return QString::fromUtf8(QByteArray::fromPercentEncoding(pair.mid(equals + 1)));
    }
    return std::nullopt;
}

QByteArray queryOf(const QByteArray& target)
{
    const qsizetype mark = target.indexOf('?');
    return mark < 0 ? QByteArray() : target.mid(mark + 1);
}

QByteArray imageType(const QByteArray& image)
{
    if (image.startsWith("\x89PNG"))
        return "image/png";
    if (image.startsWith("\xff\xd8"))
        return "image/jpeg";
    return "application/octet-stream";
}

} // namespace

QByteArray defaultArt()
{
    static const char png[] =
        "\x89\x50\x4e\x47\x0d\x0a\x1a\x0a\x00\x00\x00\x0d\x49\x48\x44\x52\x00\x00\x00\x10\x00\x00"
        "\x00\x10\x08\x02\x00\x00\x00\x90\x91\x68\x36\x00\x00\x00\x21\x49\x44\x41\x54\x78\xda\x63"
        "\xd0\xca\x9f\x8e\x15\xbd\xd8\xe0\x8d\x15\x31\x8c\x6a\xa0\x89\x06\x5c\x12\xb8\x0c\x1a\xd5"
        "\x40\x13\x0d\x00\xca\x56\x89\x90\x47\xc6\x58\x17\x00\x00\x00\x00\x49\x45\x4e\x44\xae\x42"
        "\x60\x82";
    return QByteArray(png, sizeof(png) - 1);
}

HttpAnswer coverArt(const Household& household, const Player& player, const QByteArray& target)
{
    const Player* leader = household.playerByUid(household.coordinatorOf(player.uid));
    if (!leader)
        leader = &player;
    const QByteArray query = queryOf(target);
    const std::optional<QString> asked = queryValue(query, "u");
    const Track& track = leader->track;
    const std::optional<QString> named = queryValue(queryOf(track.albumArt.toUtf8()), "u");
    if (queryValue(query, "s") != QStringLiteral("1") || !asked || asked->isEmpty() ||
        (*asked != track.uri && asked != named))
        return plainStatus(404);
    const QByteArray image = leader->art.isEmpty() ? defaultArt() : leader->art;
    return HttpAnswer{200, imageType(image), image};
}

} // namespace emulator
