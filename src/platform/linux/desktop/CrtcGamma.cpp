#include "platform/linux/desktop/CrtcGamma.h"

#include <algorithm>

namespace pw::linuxdesktop {

namespace {
constexpr std::string_view kCategory = "Display";

std::string keyOf(const DisplaySource& source, platform::DisplayID display) {
    const auto edid = source.edid ? source.edid(display) : std::nullopt;
    return displayKey(display, edid ? &*edid : nullptr);
}
} // namespace

std::optional<platform::GammaRamp> CrtcGammaTables::read(platform::DisplayID display) {
    std::lock_guard lock(mutex_);
    if (serverGone()) return std::nullopt;
    const auto crtc = crtcFor(display);
    if (!crtc) return std::nullopt;
    const auto ramp = readCrtc(*crtc);
    if (!ramp) return std::nullopt;
    return toGammaRamp(*ramp);
}

bool CrtcGammaTables::apply(platform::DisplayID display, const platform::GammaRamp& ramp) {
    std::lock_guard lock(mutex_);
    // An empty table would leave the CRTC half-set or black.
    if (!ramp.valid()) return false;
    if (serverGone()) return false;
    const auto crtc = crtcFor(display);
    if (!crtc) return false;

    auto original = originals_.find(*crtc);
    if (original == originals_.end()) {
        const auto unrepaired = unrepaired_.find(keyOf(journalSource_, display));
        auto ramp = unrepaired != unrepaired_.end() ? std::optional(unrepaired->second)
                                                    : readCrtc(*crtc);
        if (!ramp) {
            log_.error(kCategory, "Cannot read the gamma ramp of display " +
                                      std::to_string(display) + ", not dimming it");
            return false;
        }
        original = originals_.emplace(*crtc, std::move(*ramp)).first;
        if (unrepaired != unrepaired_.end()) unrepaired_.erase(unrepaired);
        if (journal_) {
            std::string whyNot;
            const std::string key = keyOf(journalSource_, display);
            journalKeys_[*crtc] = key;
            if (!journal_->keep({backend_, key, original->second}, whyNot))
                log_.error(kCategory, "Cannot write down the gamma ramp of display " +
                                          std::to_string(display) + " (" + whyNot +
                                          "): if the program is killed while it is dimmed, "
                                          "it stays dimmed until the session ends");
        }
    }
    if (!writeCrtc(*crtc, stretchRamp(ramp, original->second.size()))) {
        log_.error(kCategory,
                   serverName_ + " refused the gamma ramp of display " + std::to_string(display));
        return false;
    }
    return true;
}

void CrtcGammaTables::restoreAll() {
    std::lock_guard lock(mutex_);
    restoreLocked();
}

void CrtcGammaTables::restoreNow() {
    std::lock_guard lock(mutex_);
    restoreLocked();
}

void CrtcGammaTables::restoreLocked() {
    // A server that went away took its ramps with it.
    if (originals_.empty() || serverGone()) {
        originals_.clear();
        journalKeys_.clear();
        if (journal_) journal_->forget(backend_);
        return;
    }
    const std::string kept = ": the ramp is kept, with its record, to give back at the next "
                             "restore or the next start";
    if (!beforeRestore()) {
        log_.error(kCategory, serverName_ + " did not answer when the gamma ramps were to be "
                                            "given back" + kept);
        return;
    }
    for (auto it = originals_.begin(); it != originals_.end();) {
        const std::uint32_t crtc = it->first;
        if (!writeCrtc(crtc, it->second)) {
            if (lastCallUnanswered()) {
                log_.error(kCategory, serverName_ + " did not confirm giving back the gamma ramp "
                                                    "of CRTC " + std::to_string(crtc) + kept);
                ++it;
                continue;
            }
            log_.info(kCategory, "A CRTC went away before its gamma ramp was given back");
        }
        if (journal_ && journalKeys_.contains(crtc)) journal_->forget(backend_, journalKeys_[crtc]);
        journalKeys_.erase(crtc);
        it = originals_.erase(it);
    }
}

void CrtcGammaTables::keepJournal(std::shared_ptr<GammaJournal> journal, std::string backend,
                                  DisplaySource source) {
    std::lock_guard lock(mutex_);
    journal_ = std::move(journal);
    backend_ = std::move(backend);
    journalSource_ = std::move(source);
    if (!journal_) return;

    std::string whyNot;
    const auto records = journal_->read(whyNot);
    if (!whyNot.empty())
        log_.error(kCategory, "Ignoring the record of dimmed displays: " + whyNot);
    bool ours = false;
    for (const auto& record : records) ours = ours || record.backend == backend_;
    if (!ours || serverGone()) {
        if (!whyNot.empty() || ours) journal_->forget(backend_);
        return;
    }
    // A record is dropped once its display is repaired, found set by someone else, or
    // gone; never because the server did not answer.
    const std::string later = ": the record of the displays left dimmed is kept for the next start";
    if (!beforeRestore()) {
        log_.error(kCategory, serverName_ + " did not answer" + later);
        return;
    }
    std::vector<std::string> unanswered;
    const auto displays = journalSource_.displays ? journalSource_.displays()
                                                  : std::vector<platform::DisplayID>{};
    for (const auto display : displays) {
        const std::string key = keyOf(journalSource_, display);
        for (const auto& record : records) {
            if (record.backend != backend_ || record.displayKey != key) continue;
            const auto crtc = crtcFor(display);
            const auto current = crtc ? readCrtc(*crtc) : std::nullopt;
            if (!current) {
                if (lastCallUnanswered()) {
                    unanswered.push_back(key);
                    unrepaired_[key] = record.original;
                }
                break;
            }
            if (!looksDimmedFrom(*current, record.original)) {
                log_.info(kCategory, "Display " + std::to_string(display) +
                                         " was dimmed when the program last ended, but its gamma "
                                         "has been set since; leaving it as it is");
            } else if (writeCrtc(*crtc, record.original)) {
                log_.info(kCategory, "Display " + std::to_string(display) +
                                         " was left dimmed when the program last ended; its "
                                         "gamma ramp is given back");
            } else if (lastCallUnanswered()) {
                log_.error(kCategory, serverName_ + " did not confirm giving back the gamma ramp "
                                                    "of display " + std::to_string(display) +
                                                    " left dimmed last time" + later);
                unanswered.push_back(key);
                unrepaired_[key] = record.original;
            } else {
                log_.error(kCategory, serverName_ + " refused the gamma ramp of display " +
                                          std::to_string(display) + " left dimmed last time");
            }
            break;
        }
    }
    if (unanswered.empty()) {
        journal_->forget(backend_);
        return;
    }
    for (const auto& record : records)
        if (record.backend == backend_ &&
            std::find(unanswered.begin(), unanswered.end(), record.displayKey) == unanswered.end())
            journal_->forget(backend_, record.displayKey);
}

bool CrtcGammaTables::holdsOriginal(platform::DisplayID display) {
    std::lock_guard lock(mutex_);
    const auto crtc = crtcFor(display);
    return crtc && originals_.contains(*crtc);
}

} // namespace pw::linuxdesktop
