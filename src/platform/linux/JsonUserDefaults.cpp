#include "platform/linux/JsonUserDefaults.h"

#include "platform/posix/BaseDirectories.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <sys/file.h>
#include <sys/stat.h>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

namespace pw::platform {

namespace {

using Json = nlohmann::json;
namespace fs = std::filesystem;

// Far beyond any real settings file; refusing more keeps a stray huge file from being
// read into memory on every change.
constexpr off_t kMaxFileSize = 16 * 1024 * 1024;
// How many offending keys one report names before it only counts the rest.
constexpr std::size_t kNamedBadKeys = 5;

void toStderr(const std::string& line) {
    std::fprintf(stderr, "panelwright: %s\n", line.c_str());
}

std::string errnoText(int error) {
    return std::strerror(error);
}

// Text from the file (keys, parser excerpts) made safe for a one-line log message.
std::string printable(std::string_view text, std::size_t limit, bool asciiOnly) {
    std::string out;
    for (char c : text) {
        if (out.size() >= limit) {
            out += "...";
            break;
        }
        auto byte = static_cast<unsigned char>(c);
        bool control = byte < 0x20 || byte == 0x7f || (asciiOnly && byte >= 0x80);
        out += control ? '?' : c;
    }
    return out;
}

// nlohmann's messages start with "[json.exception.parse_error.101] ": noise for a user.
std::string parseProblem(const std::exception& error) {
    std::string_view what = error.what();
    if (auto end = what.find("] "); !what.empty() && what.front() == '[' && end != what.npos)
        what.remove_prefix(end + 2);
    return "is not valid JSON (" + printable(what, 200, true) + ")";
}

// One stored entry, or nothing when the JSON value is not a setting.
std::optional<DefaultsValue> settingFrom(const Json& value) {
    switch (value.type()) {
    case Json::value_t::boolean:
        return DefaultsValue(value.get<bool>());
    case Json::value_t::number_integer:
        return DefaultsValue(value.get<std::int64_t>());
    case Json::value_t::number_unsigned: {
        auto number = value.get<std::uint64_t>();
        if (number > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
            return std::nullopt;
        return DefaultsValue(static_cast<std::int64_t>(number));
    }
    case Json::value_t::number_float: {
        auto number = value.get<double>();
        if (!std::isfinite(number)) return std::nullopt;
        return DefaultsValue(number);
    }
    case Json::value_t::string:
        return DefaultsValue(value.get<std::string>());
    default:
        return std::nullopt;
    }
}

Json jsonFrom(const DefaultsValue& value) {
    return std::visit([](const auto& v) { return Json(v); }, value);
}

bool writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t written = ::write(fd, bytes.data(), bytes.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// Makes a rename or a new file in `folder` survive a power cut.
void syncFolder(const fs::path& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

// Writes a new file that must not exist yet, flushed to disk; "" or what went wrong.
std::string writeNewFile(const fs::path& file, std::string_view bytes) {
    int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return errnoText(errno);
    bool ok = writeAll(fd, bytes) && ::fsync(fd) == 0;
    int error = errno;
    if (::close(fd) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (!ok) {
        ::unlink(file.c_str());
        return errnoText(error);
    }
    syncFolder(file.parent_path());
    return {};
}

// Never lets one kept copy replace an earlier one; falls back to a plain rename on file
// systems without the no-replace flag (the name was checked to be free just before).
bool renameWithoutReplacing(const fs::path& from, const fs::path& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS) return false;
    return ::rename(from.c_str(), to.c_str()) == 0;
}

std::string describe(std::string_view what, const fs::path& file) {
    return std::string(what) + " '" + file.string() + "'";
}

} // namespace

// --- Folder lock -------------------------------------------------------------------------

class JsonUserDefaults::FolderLock {
public:
    explicit FolderLock(JsonUserDefaults& store) : store_(store) {
        if (store_.folderLock_ >= 0) return; // already held further up this call
        fs::path folder = store_.file_.parent_path();
        if (folder.empty()) folder = ".";
        int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0) return; // no folder yet or not ours: the write itself will say why
        while (::flock(fd, LOCK_EX) != 0 && errno == EINTR) {
        }
        store_.folderLock_ = fd;
        owner_ = true;
    }
    ~FolderLock() {
        if (!owner_) return;
        ::close(store_.folderLock_); // closing the last descriptor releases the lock
        store_.folderLock_ = -1;
    }
    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

private:
    JsonUserDefaults& store_;
    bool owner_ = false;
};

// --- Construction and location -----------------------------------------------------------

JsonUserDefaults::JsonUserDefaults(fs::path file, Report report)
    : file_(std::move(file)), report_(report ? std::move(report) : Report(toStderr)) {}

JsonUserDefaults::JsonUserDefaults() : JsonUserDefaults(defaultPath()) {}

fs::path JsonUserDefaults::defaultPath() {
    return xdg::configHome() / "panelwright" / "settings.json";
}

fs::path JsonUserDefaults::pathFor(std::string_view xdgConfigHome, std::string_view home) {
    return xdg::baseDirectory(xdgConfigHome, home, ".config") / "panelwright" / "settings.json";
}

void JsonUserDefaults::setReport(Report report) {
    std::lock_guard lock(mutex_);
    report_ = report ? std::move(report) : Report(toStderr);
}

// --- Reading -----------------------------------------------------------------------------

bool JsonUserDefaults::Signature::operator==(const Signature& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec &&
           changed.tv_sec == other.changed.tv_sec && changed.tv_nsec == other.changed.tv_nsec;
}

namespace {
template <class Signature> Signature signatureOf(const struct stat& info) {
    Signature s;
    s.device = info.st_dev;
    s.inode = info.st_ino;
    s.size = info.st_size;
    s.modified = info.st_mtim;
    s.changed = info.st_ctim;
    return s;
}
} // namespace

std::optional<JsonUserDefaults::Signature> JsonUserDefaults::statFile() const {
    struct stat info {};
    if (::stat(file_.c_str(), &info) != 0) return std::nullopt;
    return signatureOf<Signature>(info);
}

void JsonUserDefaults::refreshLocked() {
    auto seen = statFile();
    if (!seen) {
        // No file (never written, or removed by someone else): everything is a default.
        values_.clear();
        loaded_.reset();
        writesBlocked_ = false;
        return;
    }
    if (loaded_ && *loaded_ == *seen) return;
    loadLocked(*seen);
}

void JsonUserDefaults::loadLocked(const Signature& seen) {
    writesBlocked_ = false;
    values_.clear();
    loaded_ = seen;

    // Non-blocking so that a FIFO in the file's place cannot hang the program.
    int fd = ::open(file_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        int error = errno;
        if (error == ENOENT) {
            loaded_.reset(); // gone since the stat: nothing to read
            return;
        }
        putAsideLocked(seen, "cannot be read (" + errnoText(error) + ")");
        return;
    }
    struct stat info {};
    ::fstat(fd, &info);
    Signature opened = signatureOf<Signature>(info);
    loaded_ = opened;
    std::string text;
    std::string problem;
    if (S_ISDIR(info.st_mode))
        problem = "is a folder, not a file";
    else if (!S_ISREG(info.st_mode))
        problem = "is not a regular file";
    else if (info.st_size > kMaxFileSize)
        problem = "is larger than 16 MiB";
    else {
        text.resize(static_cast<std::size_t>(info.st_size));
        std::size_t got = 0;
        while (got < text.size()) {
            ssize_t n = ::read(fd, text.data() + got, text.size() - got);
            if (n < 0 && errno == EINTR) continue;
            if (n < 0) {
                problem = "cannot be read (" + errnoText(errno) + ")";
                break;
            }
            if (n == 0) break; // shrank while we read; what we have is what we judge
            got += static_cast<std::size_t>(n);
        }
        text.resize(got);
    }
    ::close(fd);
    if (!problem.empty()) {
        putAsideLocked(opened, problem);
        return;
    }
    // An empty file is what `touch` leaves: no settings yet, not damage.
    if (text.find_first_not_of(" \t\r\n") == std::string::npos) return;

    Json document;
    try {
        document = Json::parse(text);
    } catch (const Json::exception& error) {
        putAsideLocked(opened, parseProblem(error));
        return;
    }
    if (!document.is_object()) {
        putAsideLocked(opened, "does not hold a JSON object");
        return;
    }

    std::vector<std::string> bad;
    for (const auto& [key, value] : document.items()) {
        if (auto setting = settingFrom(value))
            values_.insert_or_assign(key, std::move(*setting));
        else
            bad.push_back(key);
    }
    if (bad.empty()) return;

    std::string shapes = "has " + std::to_string(bad.size()) +
                         (bad.size() == 1 ? " entry that is" : " entries that are") +
                         " not settings (";
    for (std::size_t i = 0; i < bad.size() && i < kNamedBadKeys; ++i)
        shapes += (i ? ", '" : "'") + printable(bad[i], 60, false) + "'";
    if (bad.size() > kNamedBadKeys)
        shapes += " and " + std::to_string(bad.size() - kNamedBadKeys) + " more";
    shapes += ")";
    keepCopyLocked(opened, text, shapes);
}

// The file is of no use at all: rename it out of the way so the next write starts fresh.
void JsonUserDefaults::putAsideLocked(const Signature& seen, const std::string& problem) {
    values_.clear();
    FolderLock lock(*this);
    auto now = statFile();
    if (!now || !(*now == seen)) {
        // Replaced while we looked: judge the new version at the next read instead of
        // moving someone else's fresh file aside.
        loaded_.reset();
        return;
    }
    fs::path aside = asidePath();
    if (!renameWithoutReplacing(file_, aside)) {
        int error = errno;
        writesBlocked_ = true;
        report_(describe("Settings file", file_) + " " + problem + "; could not move it aside (" +
                errnoText(error) + "), so settings run on defaults and are not saved");
        return;
    }
    syncFolder(aside.parent_path());
    loaded_.reset();
    report_(describe("Settings file", file_) + " " + problem + "; moved it to '" + aside.string() +
            "' and started from defaults");
}

// The file is partly usable: keep a copy of the original, then rewrite it without the
// entries that are not settings.
void JsonUserDefaults::keepCopyLocked(const Signature& seen, const std::string& original,
                                      const std::string& problem) {
    FolderLock lock(*this);
    auto now = statFile();
    if (!now || !(*now == seen)) {
        values_.clear();
        loaded_.reset();
        return;
    }
    fs::path aside = asidePath();
    if (std::string error = writeNewFile(aside, original); !error.empty()) {
        writesBlocked_ = true;
        report_(describe("Settings file", file_) + " " + problem + "; could not keep a copy at '" +
                aside.string() + "' (" + error + "), so the file is left as it is and changes " +
                "are not saved");
        return;
    }
    std::string error = saveLocked(values_);
    report_(describe("Settings file", file_) + " " + problem + "; kept the other settings and " +
            "saved the original as '" + aside.string() + "'" +
            (error.empty() ? "" : " (rewriting the file failed: " + error + ")"));
}

fs::path JsonUserDefaults::asidePath() const {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
    std::string base = file_.filename().string() + ".corrupt-" + stamp;
    fs::path candidate = file_.parent_path() / base;
    // Two bad versions within a second must not overwrite each other's copy.
    // The rename or the exclusive create that follows fails cleanly if the bound is hit.
    std::error_code ec;
    for (int n = 2; n < 1000; ++n) {
        if (fs::symlink_status(candidate, ec).type() == fs::file_type::not_found) break;
        candidate = file_.parent_path() / (base + "-" + std::to_string(n));
    }
    return candidate;
}

std::optional<DefaultsValue> JsonUserDefaults::object(std::string_view key) {
    std::lock_guard lock(mutex_);
    refreshLocked();
    auto it = values_.find(key);
    if (it == values_.end()) return std::nullopt;
    return it->second;
}

std::vector<std::string> JsonUserDefaults::keys() {
    std::lock_guard lock(mutex_);
    refreshLocked();
    std::vector<std::string> out;
    out.reserve(values_.size());
    for (const auto& entry : values_)
        out.push_back(entry.first);
    return out;
}

// --- Writing -----------------------------------------------------------------------------

std::string JsonUserDefaults::saveLocked(const Values& values) {
    Json document = Json::object();
    for (const auto& [key, value] : values)
        document[key] = jsonFrom(value);
    // A string that is not valid UTF-8 is written with replacement characters rather than
    // failing the whole file.
    std::string text = document.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";

    // Write through a symbolic link (a settings file kept with the user's dotfiles)
    // instead of replacing the link with a file.
    fs::path target = file_;
    std::error_code ec;
    if (fs::is_symlink(file_, ec)) {
        fs::path resolved = fs::weakly_canonical(file_, ec);
        if (!ec) target = resolved;
    }
    fs::path folder = target.parent_path();
    if (folder.empty()) folder = ".";

    std::string pattern = (folder / (target.filename().string() + ".tmp-XXXXXX")).string();
    int fd = ::mkstemp(pattern.data());
    if (fd < 0) return "cannot create a file in '" + folder.string() + "': " + errnoText(errno);
    ::fchmod(fd, 0600);
    bool ok = writeAll(fd, text) && ::fsync(fd) == 0;
    int error = errno;
    if (::close(fd) != 0 && ok) {
        ok = false;
        error = errno;
    }
    if (ok && ::rename(pattern.c_str(), target.c_str()) != 0) {
        ok = false;
        error = errno;
    }
    if (!ok) {
        ::unlink(pattern.c_str());
        return "cannot write '" + target.string() + "': " + errnoText(error);
    }
    syncFolder(folder);
    loaded_ = statFile();
    return {};
}

template <class Change> void JsonUserDefaults::changeLocked(Change&& change) {
    std::error_code ec;
    fs::path folder = file_.parent_path();
    if (!folder.empty()) fs::create_directories(folder, ec);

    FolderLock lock(*this);
    refreshLocked(); // apply the change to what is on disk now, not to an older reading
    Values next = values_;
    if (!change(next)) return; // nothing changes: leave the file alone

    std::string failure;
    if (writesBlocked_)
        failure = describe("Settings file", file_) +
                  " could not be put aside, so changes are kept for this session only";
    else if (ec)
        failure = "Cannot create the settings folder '" + folder.string() + "': " + ec.message();
    else if (std::string error = saveLocked(next); !error.empty())
        failure = "Settings not saved: " + error;
    values_ = std::move(next);
    if (failure.empty()) {
        lastWriteFailure_.clear();
    } else if (failure != lastWriteFailure_) {
        lastWriteFailure_ = failure;
        report_(failure);
    }
}

void JsonUserDefaults::set(std::string_view key, const DefaultsValue& value) {
    std::lock_guard lock(mutex_);
    if (const double* number = std::get_if<double>(&value); number && !std::isfinite(*number)) {
        report_("Setting '" + printable(key, 200, false) +
                "' not saved: an infinite or NaN number cannot be stored");
        return;
    }
    changeLocked([&](Values& values) {
        auto it = values.find(key);
        if (it != values.end() && it->second == value) return false;
        values.insert_or_assign(std::string(key), value);
        return true;
    });
}

void JsonUserDefaults::remove(std::string_view key) {
    std::lock_guard lock(mutex_);
    changeLocked([&](Values& values) {
        auto it = values.find(key);
        if (it == values.end()) return false;
        values.erase(it);
        return true;
    });
}

} // namespace pw::platform
