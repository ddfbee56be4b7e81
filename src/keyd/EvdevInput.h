#pragma once

// The kernel's input devices through libevdev, and their clones through uinput.

#include "keyd/Input.h"

namespace keyd {

class EvdevBackend final : public InputBackend {
public:
    Expected<std::unique_ptr<InputDevice>, DeviceError> open(const std::string& node) override;
    bool exists(const std::string& node) const override;
};

} // namespace keyd
