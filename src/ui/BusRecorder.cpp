#include "ui/BusRecorder.h"

#include <chrono>
#include <string>

namespace pw::ui {

std::shared_ptr<BusRecorder> BusRecorder::open(const std::filesystem::path& file) {
    std::FILE* f = std::fopen(file.c_str(), "w");
    if (!f) return nullptr;
    return std::shared_ptr<BusRecorder>(new BusRecorder(f));
}

BusRecorder::~BusRecorder() { std::fclose(file_); }

void BusRecorder::record(const sim::BusTransfer& t) {
    using Ms = std::chrono::duration<double, std::milli>;
    const double start = Ms(t.start.time_since_epoch()).count();
    std::string bytes;
    char hex[4];
    for (auto b : t.bytes) {
        std::snprintf(hex, sizeof hex, "%02X ", b);
        bytes += hex;
    }
    if (!bytes.empty()) bytes.pop_back();
    std::lock_guard lock(mutex_);
    std::fprintf(file_, "%.3f\t%s\t%s\t0x%02X\t0x%02X\t%d\t%s\n", start,
                 t.kind == sim::BusTransfer::Kind::write ? "write" : "read", t.endpoint.c_str(),
                 static_cast<unsigned>(t.chipAddress), static_cast<unsigned>(t.dataAddress),
                 static_cast<int>(t.result), bytes.c_str());
    std::fflush(file_);
}

} // namespace pw::ui
