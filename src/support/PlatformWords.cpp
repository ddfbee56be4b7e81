#include "support/PlatformWords.h"

#include <QtGlobal>

#include <array>

namespace {

using enum PlatformText;
using enum TextUse;

// Shown texts are wrapped in QT_TRANSLATE_NOOP so that lupdate finds them for translators.
#define SHOWN(text) QT_TRANSLATE_NOOP("Velotide", text)

constexpr std::array words{
    // Arming and input access
    PlatformWord{inputAccessMissing, log, "Accessibility permission missing",
                 "input access missing"},
    PlatformWord{keyCaptureInactive, shown, "Volume keys inactive — event tap inactive",
                 SHOWN("Volume keys inactive — key capture inactive")},
    PlatformWord{keyCaptureInactiveReason, log, "event tap inactive", "key capture inactive"},
    PlatformWord{volumeKeysNeedInputAccess, shown, "Volume keys need Accessibility permission",
                 SHOWN("Volume keys need input access")},
    PlatformWord{openInputAccessSettings, shown, "Open Accessibility settings",
                 SHOWN("Open input access settings")},
    PlatformWord{inputAccessAlreadyListed, shown,
                 "Already listed? Select it, press \u2212, then relaunch", // U+2212 minus
                 SHOWN("Already installed? Check that velotide-keyd is running, then relaunch")},
    PlatformWord{inputAccessGranted, log, "Accessibility permission granted",
                 "Input access granted"},
    PlatformWord{inputAccessNeededRequesting, log, "Accessibility permission needed — requesting",
                 "Input access needed — requesting"},
    PlatformWord{inputAccessRevoked, log, "Accessibility permission was revoked — keys released",
                 "Input access was revoked — keys released"},
    PlatformWord{keysStayWithDesktop, log,
                 "No external audio output found — keys stay with macOS until one is chosen",
                 "No external audio output found — keys stay with the desktop until one is "
                 "chosen"},

    // Discovery
    PlatformWord{openNetworkSettings, shown, "Open Local Network settings",
                 SHOWN("Open network settings")},
    PlatformWord{noSpeakersFound, shown, "No speakers found — allow local network access?",
                 SHOWN("No speakers found — is a firewall blocking discovery?")},
    PlatformWord{noZonesPersistHint, log,
                 "if this persists, check Privacy & Security > Local Network",
                 "if this persists, is a firewall blocking discovery?"},

    // Output routing
    PlatformWord{soundServerNotRunning, log,
                 "Control Center is not running — cannot drive the Sound menu",
                 "The sound server is not running — cannot load AirPlay discovery"},
    PlatformWord{noAirPlayDiscovery, log, "No Sound menu extra in Control Center — is it hidden?",
                 "No AirPlay discovery in the sound server — is module-raop-discover "
                 "installed?"},
    PlatformWord{routedViaSoundServer, log, "' via Control Center (now '",
                 "' via the sound server (now '"},
    PlatformWord{routedDirectly, log, "' via CoreAudio (now '", "' via PulseAudio (now '"},

    // Panel and menus
    PlatformWord{computerAudioGoingTo, shown, "Mac audio is going to %@",
                 SHOWN("This computer's audio is going to %1")},
    PlatformWord{openAtLoginBlocked, shown, "Open at Login (blocked in System Settings)",
                 SHOWN("Open at Login (blocked in Settings)")},
    PlatformWord{triggerOutputCaption, shown,
                 "Volume keys redirect only while the Mac plays through this output",
                 SHOWN("Volume keys redirect only while this computer plays through this output")},

    // Probe report and diagnostics
    PlatformWord{probeInputAccess, report, "  Accessibility trusted: ", "  Input access: "},
    PlatformWord{probeInputAccessRemark, report,
                 "    (an ad-hoc signed build must be re-granted after every rebuild)",
                 "    (input access comes from the key service, velotide-keyd)"},
    PlatformWord{probeNoZonesSameNetwork, report,
                 "  none found — check the Mac and the speakers are on the same network,",
                 "  none found — check this computer and the speakers are on the same "
                 "network,"},
    PlatformWord{probeNoZonesFirewall, report,
                 "  and that local network access is allowed for this app",
                 "  and whether a firewall is blocking discovery"},
    PlatformWord{diagnosticsSystem, report, "macOS: ", "system: "},
    PlatformWord{diagnosticsInputAccess, report, "accessibility trusted: ", "input access: "},
    PlatformWord{diagnosticsBlockedInSettings, report, " (blocked in System Settings)",
                 " (blocked in Settings)"},
    PlatformWord{diagnosticsCopiedInformation, shown,
                 "Ready to paste into a bug report.\n\nIt includes your speaker's name and its "
                 "address on your network, the name of your Mac's audio output, and the last 60 "
                 "log lines. No account details, no keystrokes, and nothing about what you were "
                 "listening to.",
                 SHOWN("Ready to paste into a bug report.\n\nIt includes your speaker's name and "
                       "its address on your network, the name of this computer's audio output, "
                       "and the last 60 log lines. No account details, no keystrokes, and nothing "
                       "about what you were listening to.")},

    // Setup window
    PlatformWord{setupWelcomeBody, shown,
                 "Your Mac sends sound to the speaker down an optical cable, and that cable "
                 "carries audio one way only — so the volume keys have nothing to talk "
                 "to.\n\nVelotide catches the keys and sends them to the speaker across your "
                 "network instead. Two permissions and one choice, and you're done.",
                 SHOWN("This computer sends sound to the speaker down an optical cable, and that "
                       "cable carries audio one way only — so the volume keys have nothing "
                       "to talk to.\n\nVelotide catches the keys and sends them to the speaker "
                       "across your network instead. Two permissions and one choice, and you're "
                       "done.")},
    PlatformWord{setupInputAccessBody, shown,
                 "The volume keys are not ordinary keystrokes: macOS handles them itself, and "
                 "catching one before it does needs Accessibility permission.\n\nVelotide acts "
                 "on three keys — volume up, volume down and mute — and on a click, to "
                 "dismiss the overlay. It reads no other key and stores nothing you type.",
                 SHOWN("The volume keys are not ordinary keystrokes: the desktop handles them "
                       "itself, and catching one before it does needs input access.\n\nVelotide "
                       "acts on three keys — volume up, volume down and mute — and on a "
                       "click, to dismiss the overlay. It reads no other key and stores nothing "
                       "you type.")},
    PlatformWord{setupNetworkBody, shown,
                 "Speakers are found by asking the local network who is out there, so macOS will "
                 "check that is allowed.",
                 SHOWN("Speakers are found by asking the local network who is out there, so a "
                       "firewall must let that through.")},
    PlatformWord{setupReadyNeedsInputAccess, shown,
                 "The keys are not active yet: Velotide still needs Accessibility permission. You "
                 "can grant it whenever you like and it will start working.",
                 SHOWN("The keys are not active yet: Velotide still needs input access. You can "
                       "grant it whenever you like and it will start working.")},
    PlatformWord{setupSpeakerBody, shown,
                 "These are the Sonos speakers on your network. Choose the one the optical cable "
                 "runs to — that is what the volume keys will control.\n\nYou can change it "
                 "any time from the menu bar.",
                 SHOWN("These are the Sonos speakers on your network. Choose the one the optical "
                       "cable runs to — that is what the volume keys will control.\n\nYou can "
                       "change it any time from the panel.")},
    PlatformWord{setupReadyNoSpeaker, shown,
                 "No speaker is selected yet, so the keys are not active. Pick one from the menu "
                 "bar when you are ready.",
                 SHOWN("No speaker is selected yet, so the keys are not active. Pick one from the "
                       "panel when you are ready.")},
    PlatformWord{setupReadyNotArmed, shown,
                 "Setup is done. The keys are not active this second — the menu bar icon says "
                 "why, and offers the fix.",
                 SHOWN("Setup is done. The keys are not active this second — the panel says why, "
                       "and offers the fix.")},
    PlatformWord{setupReadyEverythingElse, shown,
                 "Everything else lives in the menu bar icon, which is open now. Click it any "
                 "time to change speaker, or to see what needs fixing.",
                 SHOWN("Everything else lives in the tray icon, which is there now. Click it any "
                       "time to change speaker, or to see what needs fixing.")},
    PlatformWord{loginItemNotInstalled, shown, "Move Velotide to Applications to open at login",
                 SHOWN("Install Velotide to open at login")},

    // Uninstaller (nothing is granted per user here; the key service belongs to the system)
    PlatformWord{uninstallConfirmation, shown,
                 "This removes:\n\n%@\n\nVelotide will quit. Nothing on your speakers changes, "
                 "and your Mac's own volume keys go back to normal.",
                 SHOWN("This removes:\n\n%1\n\nVelotide will quit. Nothing on your speakers "
                       "changes, and this computer's own volume keys go back to normal.")},
    PlatformWord{uninstallGrantsLine, shown,
                 "• its Accessibility, Automation and Local Network permissions",
                 SHOWN("• NOT the key service, velotide-keyd, which belongs to the whole system")},
    PlatformWord{uninstallGrantsCleared, shown,
                 "Its permissions were already cleared, so it will ask for Accessibility again "
                 "next launch. Your settings are untouched.",
                 SHOWN("Input access stays with the key service, velotide-keyd. Your settings "
                       "are untouched.")},
    PlatformWord{showInFolder, shown, "Show in Finder", SHOWN("Show in Folder")},
};

#undef SHOWN

consteval bool inEnumOrder()
{
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (static_cast<std::size_t>(words[i].id) != i)
            return false;
    }
    return static_cast<std::size_t>(showInFolder) + 1 == words.size();
}
static_assert(inEnumOrder(), "every PlatformText has its row, in the order of the enumeration");

} // namespace

std::span<const PlatformWord> platformWords()
{
    return words;
}

const char* platformText(PlatformText id)
{
    return words[static_cast<std::size_t>(id)].here;
}

QString uiText(PlatformText id)
{
    return uiText(platformText(id));
}
