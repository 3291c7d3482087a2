#pragma once

#include "platform/Gamma.h"
#include "platform/sim/SimDisplayServices.h"

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace pw::sim {

// Gamma ramps of the simulated displays. Each active display has a calibrated ramp (an
// identity ramp of 256 samples unless a test sets another, of any length); applying a ramp
// replaces what the display shows until every display is restored. Reads can be made to
// fail. Records every call. Like a real machine it refuses ramps that are not `valid`.
class SimGammaTables final : public platform::GammaTables {
public:
    using Table = platform::GammaRamp;
    // The same ramp on all three channels.
    static Table uniform(std::vector<float> samples);
    // i / (n - 1) for i in 0..n-1 (n = 256 is what an uncalibrated display shows).
    static Table identity(std::size_t samples = 256);
    // Every sample of `table` times `factor`, in single precision.
    static Table scaled(const Table& table, float factor);

    struct Call {
        enum class Kind { read, apply, restore };
        Kind kind;
        platform::DisplayID display = 0; // 0 for restore
        std::size_t samples = 0;         // apply: the ramp's length
        bool ok = true;
    };

    explicit SimGammaTables(std::shared_ptr<SimDisplayServices> displays);
    ~SimGammaTables() override;

    std::optional<Table> read(platform::DisplayID display) override;
    bool apply(platform::DisplayID display, const Table& ramp) override;
    void restoreAll() override;

    // The display's calibrated ramp (the identity ramp until set), of any length.
    void setCalibrated(platform::DisplayID display, Table table);
    Table calibrated(platform::DisplayID display) const;
    // What the display shows now: the last applied ramp, else the calibrated one.
    Table installed(platform::DisplayID display) const;
    bool showsCalibrated(platform::DisplayID display) const;

    // The next `count` reads of the display fail.
    void failNextReads(platform::DisplayID display, unsigned count);

    std::vector<Call> calls() const;
    std::size_t count(Call::Kind kind, platform::DisplayID display = 0) const;
    void clearCalls();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace pw::sim
