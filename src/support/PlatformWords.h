#pragma once

#include "support/UiText.h"

#include <QString>

#include <span>

// Texts whose first wording named the desktop platform Velotide was first written for, with
// the wording used here. Only the words that name that platform are exchanged ("Mac" as the
// computer, "Accessibility permission", "System Settings", "Control Center", the local network
// permission, the signing remark); the rest of each text stays as it was. Every such text lives
// in the one table of PlatformWords.cpp so that the exchange can be reviewed in one place:
// code that needs one of them names it here instead of writing it out.
//
// Placeholders in the texts used here are Qt's (%1, %2), filled with QString::arg().
enum class PlatformText {
    // Arming and input access (the key service stands where the Accessibility permission was)
    inputAccessMissing,
    keyCaptureInactive,
    keyCaptureInactiveReason,
    volumeKeysNeedInputAccess,
    openInputAccessSettings,
    inputAccessAlreadyListed,
    inputAccessGranted,
    inputAccessNeededRequesting,
    inputAccessRevoked,
    keysStayWithDesktop,
    // Discovery (no local network permission here: a firewall is what blocks discovery)
    openNetworkSettings,
    noSpeakersFound,
    noZonesPersistHint,
    // Output routing (the sound server stands where Control Center and CoreAudio were)
    soundServerNotRunning,
    noAirPlayDiscovery,
    routedViaSoundServer,
    routedDirectly,
    // Panel and menus
    computerAudioGoingTo,
    openAtLoginBlocked,
    triggerOutputCaption,
    // Probe report and diagnostics
    probeInputAccess,
    probeInputAccessRemark,
    probeNoZonesSameNetwork,
    probeNoZonesFirewall,
    diagnosticsSystem,
    diagnosticsInputAccess,
    diagnosticsBlockedInSettings,
    diagnosticsCopiedInformation,
    // Setup window
    setupWelcomeBody,
    setupInputAccessBody,
    setupNetworkBody,
    setupReadyNeedsInputAccess,
    setupSpeakerBody,
    setupReadyNoSpeaker,
    setupReadyNotArmed,
    setupReadyEverythingElse,
    loginItemNotInstalled,
    // Uninstaller
    uninstallConfirmation,
    uninstallGrantsLine,
    uninstallGrantsCleared,
    showInFolder,
};

// How a text reaches a reader: shown texts go through the string table (uiText), log and report
// texts never do.
enum class TextUse { shown, log, report };

struct PlatformWord {
    PlatformText id;
    TextUse use;
    const char* elsewhere; // the wording on the platform the program was first written for
    const char* here;      // the wording used on this platform, in English
};

// The whole table, in the order of PlatformText.
std::span<const PlatformWord> platformWords();

// The English wording used here: for logs and reports as it stands, and the string-table key of
// a shown text.
const char* platformText(PlatformText id);

// A shown text, looked up in the string table.
QString uiText(PlatformText id);
