#include "audio/AudioDevice.h"

#include <algorithm>

namespace {

bool isExternal(const QString& transport)
{
    return transport == QLatin1StringView("spdif") || transport == QLatin1StringView("usb");
}

std::optional<QString> firstWithTransport(const QList<AudioDevice::Output>& outputs,
                                          QLatin1StringView transport)
{
    const auto found = std::find_if(outputs.begin(), outputs.end(),
                                    [&](const auto& o) { return o.transport == transport; });
    if (found == outputs.end())
        return std::nullopt;
    return found->name;
}

} // namespace

std::optional<QString> AudioDevice::detectTriggerOutput() const
{
    const State s = state();
    return detectTriggerOutput(s.outputs, s.defaultOutputName);
}

std::optional<QString> AudioDevice::detectTriggerOutput(const QList<Output>& outputs,
                                                        const std::optional<QString>& defaultName)
{
    if (defaultName) {
        const auto current = std::find_if(outputs.begin(), outputs.end(),
                                          [&](const Output& o) { return o.name == *defaultName; });
        if (current != outputs.end() && isExternal(current->transport))
            return current->name;
    }
    if (auto spdif = firstWithTransport(outputs, QLatin1StringView("spdif")))
        return spdif;
    return firstWithTransport(outputs, QLatin1StringView("usb"));
}
