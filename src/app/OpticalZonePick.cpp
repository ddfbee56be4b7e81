#include "app/OpticalZonePick.h"

std::optional<QString> pickOpticalZone(const QList<ZoneState>& states)
{
    for (const ZoneState& s : states)
        if (s.isPlayingLineInput && s.hasNativeOptical)
            return s.device.name;
    for (const ZoneState& s : states)
        if (s.hasNativeOptical)
            return s.device.name;
    for (const ZoneState& s : states)
        if (s.isPlayingLineInput)
            return s.device.name;
    return std::nullopt;
}
