#pragma once

#include <QString>
#include <QStringView>

#include <optional>

// The speaker stack reads XML answers by plain tag scans, never with a parser.
namespace Tags {

// The text between the first exact opening tag <name> and the first </name> after it,
// as it stands. An opening tag that carries attributes does not match.
std::optional<QString> element(QStringView name, QStringView text);

} // namespace Tags
