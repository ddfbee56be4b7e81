#pragma once

#include <QList>
#include <QSet>
#include <QString>
#include <QStringView>

#include <optional>

// Reading a GetZoneGroupState answer with plain substring scans. The group state is an XML
// document carried as escaped text inside the SOAP answer; nothing here parses XML.
namespace ZoneTopology {

struct GroupInfo {
    QString coordinator; // the coordinator's UID as the topology writes it
    QStringList members; // upper-cased UIDs of the group's ZoneGroupMember tags
    bool operator==(const GroupInfo&) const = default;
};

// The zone group state as a document: it travels escaped inside the SOAP answer.
QString unescape(QString text);

// Every opening tag "<name " … ">" in document order. A tag without attributes does not match.
QStringList tags(QStringView name, QStringView text);

// The value of name="…" inside one tag's text, as it stands.
std::optional<QString> attribute(QStringView name, QStringView tag);

// The upper-cased UUIDs of ZoneGroupMember and Satellite tags that are no room of their own:
// marked Invisible="1" (bonded surrounds and subwoofers, the right of a stereo pair) or
// IsZoneBridge="1" (a Boost or Bridge). Unescapes the answer first.
QSet<QString> invisibleUIDs(const QString& answer);

// The first zone group (one that names a coordinator) whose members include `uid`,
// compared upper-cased. `text` must already be unescaped.
std::optional<GroupInfo> groupInfo(const QString& uid, QStringView text);

} // namespace ZoneTopology
