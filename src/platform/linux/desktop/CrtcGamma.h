#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Gamma.h"
#include "platform/linux/desktop/DesktopLog.h"
#include "platform/linux/desktop/DisplayPairing.h"
#include "platform/linux/desktop/GammaJournal.h"
#include "platform/linux/desktop/CrtcRamp.h"

namespace pw::linuxdesktop {

// Gamma tables on a window system's CRTC ramps; a backend says which CRTC shows a display
// and reads and writes ramps. The rules live here, once:
//  - a read gives the CRTC's ramp at its own length; an install of any length is stretched
//    over the CRTC's length, samples clamped to 0...1; an empty or uneven ramp is refused;
//  - before the first install on a CRTC its ramp is kept; restoring writes every kept
//    ramp back and forgets it (the "calibrated" tables are what the desktop had installed
//    when we first changed them). Backends restore on destruction with `restoreNow`;
//  - a server that did not answer is not a display that went away: a ramp whose return
//    was not confirmed stays kept, and written down, for the next restore or the next
//    start; a lookup not answered is a failure, not "no such display".
class CrtcGammaTables : public platform::GammaTables {
public:
    std::optional<platform::GammaRamp> read(platform::DisplayID display) final;
    bool apply(platform::DisplayID display, const platform::GammaRamp& ramp) final;
    void restoreAll() final;

    // Whether the ramp the display's CRTC had before our first change is kept.
    bool holdsOriginal(platform::DisplayID display);

    // From now on, each original ramp is also written down in `journal` (under `backend`)
    // until it is given back, so that a run that dies while a display is dimmed can be
    // repaired. Then repairs at once what an earlier run left: every display of `source`
    // with a record whose CRTC still shows that ramp dimmed gets it back; a ramp someone
    // else has set since is left alone. The records of `backend` are dropped either way.
    void keepJournal(std::shared_ptr<GammaJournal> journal, std::string backend,
                     DisplaySource source);

protected:
    CrtcGammaTables(DesktopLog log, std::string serverName)
        : log_(std::move(log)), serverName_(std::move(serverName)) {}
    void restoreNow();

    // Called with the lock held.
    virtual std::optional<std::uint32_t> crtcFor(platform::DisplayID display) = 0;
    virtual std::optional<CrtcRamp> readCrtc(std::uint32_t crtc) = 0;
    virtual bool writeCrtc(std::uint32_t crtc, const CrtcRamp& ramp) = 0;
    virtual bool serverGone() { return false; }
    // Whether the last call's answer never came (a timeout, a server that is not there
    // now), as opposed to an answer that said no.
    virtual bool lastCallUnanswered() { return false; }
    // False when the server did not answer.
    virtual bool beforeRestore() { return true; }

    const DesktopLog& log() const { return log_; }

private:
    void restoreLocked();

    std::mutex mutex_;
    DesktopLog log_;
    std::string serverName_; // "The X server", "GNOME": who refused, in log lines
    std::map<std::uint32_t, CrtcRamp> originals_;
    std::map<std::uint32_t, std::string> journalKeys_; // the journal's name of each kept CRTC
    // Originals from the journal that the repair at start could not give back (no answer):
    // a display dimmed again keeps these, not the dimmed ramp it shows.
    std::map<std::string, CrtcRamp> unrepaired_;
    std::shared_ptr<GammaJournal> journal_;
    std::string backend_;
    DisplaySource journalSource_;
};

} // namespace pw::linuxdesktop
