#include "sonos/SonosError.h"

namespace {

QString describeSonos(const SonosError& error)
{
    switch (error.kind) {
    case SonosError::Kind::Http:
        if (error.status == -1)
            return QStringLiteral("the answer was not HTTP");
        return QStringLiteral("HTTP %1").arg(error.status);
    case SonosError::Kind::NotFound:
        return QStringLiteral("speaker \"%1\" not found").arg(error.speakerName);
    case SonosError::Kind::BadResponse:
        break;
    }
    return QStringLiteral("bad response from the speaker");
}

} // namespace

QString describe(const SpeakerError& error)
{
    if (const auto* sonos = std::get_if<SonosError>(&error))
        return describeSonos(*sonos);
    return std::get<TransportError>(error).text;
}
