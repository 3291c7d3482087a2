#pragma once

#include "platform/Gamma.h"
#include "platform/sim/SimDisplayServices.h"

#include <memory>
#include <mutex>
#include <vector>

namespace pw::sim {

// Gamma transfer tables of the simulated displays. Each active display has a calibrated
// table (an identity ramp of 256 samples unless a test sets another, of any sample
// count); installing a table replaces what the display shows until the calibrated
// tables are restored. Captures can be made to fail. Records every call.
class SimGammaTables final : public platform::GammaTables {
public:
    // CoreGraphics' "illegal argument": what a display that is not active gets.
    static constexpr std::int32_t kNotActive = 1001;

    // One table: the three channels, each of `sampleCount()` samples.
    struct Table {
        std::vector<float> red, green, blue;
        std::size_t sampleCount() const { return red.size(); }
        bool operator==(const Table&) const = default;
        // The same ramp on all three channels.
        static Table uniform(std::vector<float> samples);
        // i / (n - 1) for i in 0..n-1 (n = 256 is what an uncalibrated display shows).
        static Table identity(std::size_t samples = 256);
        // Every sample of `table` times `factor`, in single precision.
        static Table scaled(const Table& table, float factor);
    };

    struct Call {
        enum class Kind { get, set, restore };
        Kind kind;
        platform::DisplayID display = 0; // 0 for restore
        std::uint32_t count = 0;         // get: the capacity asked for; set: the sample count
        std::int32_t result = 0;
    };

    explicit SimGammaTables(std::shared_ptr<SimDisplayServices> displays);
    ~SimGammaTables() override;

    std::int32_t getTransferByTable(platform::DisplayID display, std::uint32_t capacity, float* red,
                                    float* green, float* blue, std::uint32_t& sampleCount) override;
    std::int32_t setTransferByTable(platform::DisplayID display, std::uint32_t sampleCount,
                                    const float* red, const float* green,
                                    const float* blue) override;
    void restoreColorSyncSettings() override;

    // The display's calibrated table (the identity ramp until set). Any sample count is
    // allowed, including 0 and more than a reader's capacity: a read then reports the
    // real count but fills only what fits.
    void setCalibrated(platform::DisplayID display, Table table);
    Table calibrated(platform::DisplayID display) const;
    // What the display shows now: the last installed table, else the calibrated one.
    Table installed(platform::DisplayID display) const;
    bool showsCalibrated(platform::DisplayID display) const;

    // The next `count` reads of the display fail with `error` (non-zero).
    void failNextCaptures(platform::DisplayID display, unsigned count, std::int32_t error);

    std::vector<Call> calls() const;
    std::size_t count(Call::Kind kind, platform::DisplayID display = 0) const;
    void clearCalls();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace pw::sim
