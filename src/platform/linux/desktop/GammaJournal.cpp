#include "platform/linux/desktop/GammaJournal.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kHeader = "panelwright dimmed gamma 1";
// Real CRTCs have ramps of 256 to 4096 entries, and a machine has a handful of them.
constexpr std::size_t kMaxLength = 65536;
constexpr std::size_t kMaxRecords = 64;
constexpr std::uintmax_t kMaxFileSize = 4u << 20;

constexpr char kDigits[] = "0123456789abcdef";

void appendSamples(std::string& out, const std::vector<std::uint16_t>& samples) {
    for (const std::uint16_t s : samples)
        for (int shift = 12; shift >= 0; shift -= 4) out.push_back(kDigits[(s >> shift) & 0xF]);
    out.push_back('\n');
}

bool isWord(std::string_view word) {
    if (word.empty() || word.size() > 64) return false;
    for (const char c : word)
        if (!((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == ':'))
            return false;
    return true;
}

std::optional<std::vector<std::uint16_t>> parseSamples(std::string_view line, std::size_t length) {
    if (line.size() != length * 4) return std::nullopt;
    std::vector<std::uint16_t> samples(length);
    for (std::size_t i = 0; i < length; ++i) {
        unsigned value = 0;
        const char* begin = line.data() + i * 4;
        const auto [end, error] = std::from_chars(begin, begin + 4, value, 16);
        if (error != std::errc{} || end != begin + 4) return std::nullopt;
        samples[i] = static_cast<std::uint16_t>(value);
    }
    return samples;
}

// The lines of `text`; the last may lack its newline.
std::vector<std::string_view> linesOf(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const auto end = text.find('\n');
        lines.push_back(text.substr(0, end));
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    return lines;
}

} // namespace

std::string formatDimmedRamps(const std::vector<DimmedRamp>& ramps) {
    std::string out(kHeader);
    out.push_back('\n');
    for (const auto& ramp : ramps) {
        out += ramp.backend + ' ' + ramp.displayKey + ' ' + std::to_string(ramp.original.size()) + '\n';
        appendSamples(out, ramp.original.red);
        appendSamples(out, ramp.original.green);
        appendSamples(out, ramp.original.blue);
    }
    return out;
}

std::optional<std::vector<DimmedRamp>> parseDimmedRamps(std::string_view text, std::string& whyNot) {
    const auto lines = linesOf(text);
    if (lines.empty() || lines[0] != kHeader) {
        whyNot = "line 1 is not \"" + std::string(kHeader) + "\"";
        return std::nullopt;
    }
    std::vector<DimmedRamp> ramps;
    std::size_t i = 1;
    while (i < lines.size()) {
        const std::string_view head = lines[i];
        const std::string where = "line " + std::to_string(i + 1);
        if (ramps.size() == kMaxRecords) {
            whyNot = where + ": more than " + std::to_string(kMaxRecords) + " records";
            return std::nullopt;
        }
        const auto first = head.find(' ');
        const auto second = first == std::string_view::npos ? first : head.find(' ', first + 1);
        if (second == std::string_view::npos) {
            whyNot = where + ": expected \"<backend> <display> <length>\"";
            return std::nullopt;
        }
        DimmedRamp ramp;
        ramp.backend = std::string(head.substr(0, first));
        ramp.displayKey = std::string(head.substr(first + 1, second - first - 1));
        const std::string_view lengthText = head.substr(second + 1);
        std::size_t length = 0;
        const auto [end, error] =
            std::from_chars(lengthText.data(), lengthText.data() + lengthText.size(), length);
        if (!isWord(ramp.backend) || !isWord(ramp.displayKey) || error != std::errc{} ||
            end != lengthText.data() + lengthText.size() || length == 0 || length > kMaxLength) {
            whyNot = where + ": expected \"<backend> <display> <length>\" with a length of 1 to " +
                     std::to_string(kMaxLength);
            return std::nullopt;
        }
        if (i + 3 >= lines.size()) {
            whyNot = where + ": the record ends before its three channels";
            return std::nullopt;
        }
        std::vector<std::uint16_t>* channels[] = {&ramp.original.red, &ramp.original.green,
                                                  &ramp.original.blue};
        for (std::size_t c = 0; c < 3; ++c) {
            auto samples = parseSamples(lines[i + 1 + c], length);
            if (!samples) {
                whyNot = "line " + std::to_string(i + 2 + c) + ": expected " +
                         std::to_string(length) + " samples of 4 hex digits";
                return std::nullopt;
            }
            *channels[c] = std::move(*samples);
        }
        ramps.push_back(std::move(ramp));
        i += 4;
    }
    return ramps;
}

std::string displayKey(std::uint32_t display, const std::vector<std::uint8_t>* edid) {
    if (!edid || edid->size() < 128) return "display:" + std::to_string(display);
    std::uint64_t hash = 0xcbf29ce484222325ull; // FNV-1a
    for (std::size_t i = 0; i < 128; ++i) {
        hash ^= (*edid)[i];
        hash *= 0x100000001b3ull;
    }
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return std::string("edid:") + text;
}

std::vector<DimmedRamp> GammaJournal::read(std::string& whyNot) const {
    std::error_code error;
    if (!std::filesystem::exists(file_, error)) return {};
    const auto size = std::filesystem::file_size(file_, error);
    if (error || size > kMaxFileSize) {
        whyNot = file_.string() + ": not a record of dimmed displays (too large or unreadable)";
        return {};
    }
    std::ifstream in(file_, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    std::string why;
    auto ramps = parseDimmedRamps(text.str(), why);
    if (!ramps) {
        whyNot = file_.string() + ": " + why;
        return {};
    }
    return std::move(*ramps);
}

bool GammaJournal::keep(const DimmedRamp& ramp, std::string& whyNot) {
    std::string ignored;
    auto ramps = read(ignored);
    std::erase_if(ramps, [&](const DimmedRamp& r) {
        return r.backend == ramp.backend && r.displayKey == ramp.displayKey;
    });
    ramps.push_back(ramp);
    return write(ramps, whyNot);
}

void GammaJournal::forget(std::string_view backend) {
    forget(backend, {});
}

void GammaJournal::forget(std::string_view backend, std::string_view displayKey) {
    std::string ignored;
    auto ramps = read(ignored);
    std::erase_if(ramps, [&](const DimmedRamp& r) {
        return r.backend == backend && (displayKey.empty() || r.displayKey == displayKey);
    });
    std::error_code error;
    if (ramps.empty())
        std::filesystem::remove(file_, error);
    else
        write(ramps, ignored);
}

bool GammaJournal::write(const std::vector<DimmedRamp>& ramps, std::string& whyNot) const {
    std::error_code error;
    std::filesystem::create_directories(file_.parent_path(), error);
    std::string temporary = file_.string() + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) {
        whyNot = "cannot write in " + file_.parent_path().string();
        return false;
    }
    const std::string text = formatDimmedRamps(ramps);
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t n = ::write(fd, text.data() + written, text.size() - written);
        if (n <= 0) break;
        written += static_cast<std::size_t>(n);
    }
    const bool complete = written == text.size() && ::fsync(fd) == 0;
    ::close(fd);
    if (!complete || ::rename(temporary.c_str(), file_.c_str()) != 0) {
        ::unlink(temporary.c_str());
        whyNot = "cannot write " + file_.string();
        return false;
    }
    return true;
}

bool looksDimmedFrom(const CrtcRamp& current, const CrtcRamp& original) {
    if (current.size() != original.size() || current.size() == 0) return false;
    const std::vector<std::uint16_t>* now[] = {&current.red, &current.green, &current.blue};
    const std::vector<std::uint16_t>* before[] = {&original.red, &original.green, &original.blue};
    // The one factor that best maps the original onto what is shown (least squares).
    double cross = 0, square = 0;
    for (int c = 0; c < 3; ++c)
        for (std::size_t i = 0; i < current.size(); ++i) {
            cross += double((*now[c])[i]) * double((*before[c])[i]);
            square += double((*before[c])[i]) * double((*before[c])[i]);
        }
    if (square == 0) return false;
    const double factor = cross / square;
    if (factor >= 0.995) return false; // as it was: nothing to give back
    // Resampling the curve to the program's table and stretching it back costs a little
    // on curved ramps; two percent of full scale is far below any other program's change
    // (a night-light tint moves one channel by a quarter or more).
    constexpr double kTolerance = 0.02 * 65535;
    for (int c = 0; c < 3; ++c)
        for (std::size_t i = 0; i < current.size(); ++i)
            if (std::abs(double((*now[c])[i]) - factor * double((*before[c])[i])) > kTolerance)
                return false;
    return true;
}

} // namespace pw::linuxdesktop
