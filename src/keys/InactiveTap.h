#pragma once

#include "keys/EventTap.h"

// The tap of a session where no capture is possible (no key service, no X11): it never
// swallows anything and always reports itself without input access.
class InactiveTap final : public EventTap {
public:
    using EventTap::EventTap;

    bool install() override;
    void teardown() override;
    bool isTrusted() const override { return false; }
    bool isEnabled() const override { return false; }
    QString backendName() const override { return QStringLiteral("none"); }

protected:
    bool hasTap() const override { return false; }
    bool isAlive() const override { return false; }
    bool reenable() override { return false; }
};
