#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/linux/desktop/CrtcRamp.h"

namespace pw::linuxdesktop {

// What a dimmed display's CRTC showed before we first changed it. The X server and GNOME
// keep a ramp after the program that set it has died, so while a display is dimmed its
// original ramp is written down here; a run that is killed or crashes leaves the record
// behind, and the next start gives the ramp back (CrtcGammaTables::repairLeftovers).
struct DimmedRamp {
    std::string backend;    // "x11", "gnome": whose ramps these are
    std::string displayKey; // which monitor (displayKey below)
    CrtcRamp original;
};

// The file's text, one record after another:
//   panelwright dimmed gamma 1
//   <backend> <display key> <length>
//   <red samples: 4 hex digits each, no separator>
//   <green samples>
//   <blue samples>
std::string formatDimmedRamps(const std::vector<DimmedRamp>& ramps);

// The records of a file's text, or nothing with `whyNot` naming the line at fault. Never
// trusts the text: lengths, counts and characters are all checked.
std::optional<std::vector<DimmedRamp>> parseDimmedRamps(std::string_view text, std::string& whyNot);

// How a monitor is named in the record: its base EDID block, hashed, so the same monitor
// is found again whatever number it gets next time; the display number when it has none.
std::string displayKey(std::uint32_t display, const std::vector<std::uint8_t>* edid);

// The record's file. Every change is written to a new file that is renamed into place, so
// a crash mid-write leaves the old record or the new one, never half of one.
class GammaJournal {
public:
    explicit GammaJournal(std::filesystem::path file) : file_(std::move(file)) {}

    // $XDG_STATE_HOME/panelwright/dimmed-gamma, given by the caller that knows the
    // program's folders.
    const std::filesystem::path& file() const { return file_; }

    // The records kept, nothing when there is no file; a damaged file gives nothing too,
    // with `whyNot` saying what and where.
    std::vector<DimmedRamp> read(std::string& whyNot) const;
    // Adds or replaces the record of (backend, displayKey). False when it cannot be written.
    bool keep(const DimmedRamp& ramp, std::string& whyNot);
    // Drops every record of `backend` (or only its record of `displayKey`); the file goes
    // when none is left.
    void forget(std::string_view backend);
    void forget(std::string_view backend, std::string_view displayKey);

private:
    bool write(const std::vector<DimmedRamp>& ramps, std::string& whyNot) const;

    std::filesystem::path file_;
};

// Whether `current` is `original` scaled down by one factor for every channel and sample,
// within the error that resampling to the program's table and back leaves: the mark of a
// ramp we dimmed and did not give back. Anything else was set by someone else since.
bool looksDimmedFrom(const CrtcRamp& current, const CrtcRamp& original);

} // namespace pw::linuxdesktop
