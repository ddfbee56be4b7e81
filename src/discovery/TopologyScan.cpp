#include "discovery/TopologyScan.h"

#include "sonos/XmlText.h"

namespace ZoneTopology {

QString unescape(QString text)
{
    return XmlText::unescape(text);
}

QStringList tags(QStringView name, QStringView text)
{
    const QString start = u'<' + name.toString() + u' ';
    QStringList found;
    qsizetype from = 0;
    while (true) {
        const qsizetype open = text.indexOf(start, from);
        if (open < 0)
            break;
        const qsizetype close = text.indexOf(u'>', open + start.size());
        if (close < 0)
            break;
        found.append(text.mid(open, close - open + 1).toString());
        from = close + 1;
    }
    return found;
}

std::optional<QString> attribute(QStringView name, QStringView tag)
{
    const QString start = name.toString() + QStringLiteral("=\"");
    const qsizetype open = tag.indexOf(start);
    if (open < 0)
        return std::nullopt;
    const qsizetype valueStart = open + start.size();
    const qsizetype close = tag.indexOf(u'"', valueStart);
    if (close < 0)
        return std::nullopt;
    return tag.mid(valueStart, close - valueStart).toString();
}

QSet<QString> invisibleUIDs(const QString& answer)
{
    const QString text = unescape(answer);
    QSet<QString> invisible;
    for (QStringView name : {u"ZoneGroupMember", u"Satellite"}) {
        for (const QString& tag : tags(name, text)) {
            if (!tag.contains(QLatin1String("Invisible=\"1\"")) &&
                !tag.contains(QLatin1String("IsZoneBridge=\"1\"")))
                continue;
            if (const auto uuid = attribute(u"UUID", tag))
                invisible.insert(uuid->toUpper());
        }
    }
    return invisible;
}

std::optional<GroupInfo> groupInfo(const QString& uid, QStringView text)
{
    const QString wanted = uid.toUpper();
    const QString groupStart = QStringLiteral("<ZoneGroup ");
    const QString groupEnd = QStringLiteral("</ZoneGroup>");
    qsizetype from = 0;
    while (true) {
        const qsizetype open = text.indexOf(groupStart, from);
        if (open < 0)
            return std::nullopt;
        const qsizetype close = text.indexOf(groupEnd, open);
        const QStringView group =
            close < 0 ? text.mid(open) : text.mid(open, close - open + groupEnd.size());
        from = close < 0 ? text.size() : close + groupEnd.size();

        const QStringList opening = tags(u"ZoneGroup", group);
        const auto coordinator =
            opening.isEmpty() ? std::nullopt : attribute(u"Coordinator", opening.first());
        if (!coordinator)
            continue;
        QStringList members;
        for (const QString& tag : tags(u"ZoneGroupMember", group))
            if (const auto uuid = attribute(u"UUID", tag))
                members.append(uuid->toUpper());
        if (members.contains(wanted))
            return GroupInfo{*coordinator, members};
    }
}

} // namespace ZoneTopology
