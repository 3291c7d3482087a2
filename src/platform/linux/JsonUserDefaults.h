#pragma once

#include "platform/UserDefaults.h"

#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace pw::platform {

// The user-defaults store of a Linux machine: one JSON object in
// $XDG_CONFIG_HOME/panelwright/settings.json mapping each key to its value.
//
// Kinds survive a round trip through the JSON number grammar itself: an integer is
// written without a fraction (5), a double always with one or an exponent (5.0, 1e+20),
// so the file stays readable and hand-editable while 5 and 5.0 come back as different
// kinds. Booleans and strings are JSON's own. Any other shape (null, arrays, objects,
// integers beyond int64, non-finite numbers) is not a setting.
//
// Every read first checks whether the file changed on disk (device, inode, size, mtime,
// ctime) and re-reads it if so, so a change made by another process is seen at once.
// Every change is written at once and atomically (temp file in the same folder, fsync,
// rename, fsync of the folder), under an advisory lock on the folder so that two
// processes changing different keys do not lose each other's change.
//
// A file that cannot be used is never silently overwritten:
//  - not JSON, not an object, or unreadable: renamed to settings.json.corrupt-<time>,
//    reported in one line, and the store starts empty;
//  - a JSON object with some entries of the wrong shape: the original is copied to
//    settings.json.corrupt-<time>, reported in one line, the good entries are kept and
//    the file is rewritten without the bad ones.
// If the original cannot be put aside, the store runs on what it could read and refuses
// to write until the file changes, rather than destroy the only copy.
class JsonUserDefaults final : public UserDefaults {
public:
    using Report = std::function<void(const std::string&)>;

    // The store at `file`; `report` receives one line per problem (default: stderr).
    explicit JsonUserDefaults(std::filesystem::path file, Report report = {});
    // The store at defaultPath().
    JsonUserDefaults();

    // $XDG_CONFIG_HOME/panelwright/settings.json; an unset, empty or relative
    // XDG_CONFIG_HOME means $HOME/.config (the password database's home without HOME).
    static std::filesystem::path defaultPath();
    // The same rule over given values (tests). Empty `home` falls back to the password
    // database, then to the current folder.
    static std::filesystem::path pathFor(std::string_view xdgConfigHome, std::string_view home);

    // Wires problem reports to the program's logs; until then they go to stderr. The
    // report is called with the store's lock held and must not use the store.
    void setReport(Report report);

    const std::filesystem::path& path() const { return file_; }

    std::optional<DefaultsValue> object(std::string_view key) override;
    void set(std::string_view key, const DefaultsValue& value) override;
    void remove(std::string_view key) override;
    std::vector<std::string> keys() override;

private:
    // What identifies one version of the file on disk.
    struct Signature {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        timespec modified{};
        timespec changed{};
        bool operator==(const Signature& other) const;
    };
    using Values = std::map<std::string, DefaultsValue, std::less<>>;

    void refreshLocked();
    void loadLocked(const Signature& seen);
    void putAsideLocked(const Signature& seen, const std::string& problem);
    void keepCopyLocked(const Signature& seen, const std::string& original,
                        const std::string& problem);
    // Writes `values` as the new file; "" on success, else what went wrong.
    std::string saveLocked(const Values& values);
    template <class Change> void changeLocked(Change&& change);
    std::optional<Signature> statFile() const;
    std::filesystem::path asidePath() const;

    std::filesystem::path file_;
    Report report_;
    std::mutex mutex_;
    Values values_;
    std::optional<Signature> loaded_; // the version values_ reflect; none: no file
    bool writesBlocked_ = false;      // the file on disk is bad and could not be kept
    std::string lastWriteFailure_;    // repeated write failures are reported once
    int folderLock_ = -1;             // descriptor holding the folder's lock, if taken

    // Holds the advisory lock on the folder for one read-modify-write (reentrant).
    class FolderLock;
};

} // namespace pw::platform
