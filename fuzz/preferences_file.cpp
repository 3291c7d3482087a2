// Feeds arbitrary bytes to the Linux settings store as its settings file: whatever the
// file holds, reading it, salvaging it and writing it back must never crash, and what
// the store keeps must survive its own round trip.
#include "platform/linux/JsonUserDefaults.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdlib.h>
#include <string>
#include <system_error>

namespace {

namespace fs = std::filesystem;

const fs::path& workFolder() {
    static const fs::path folder = [] {
        std::string pattern = (fs::temp_directory_path() / "pw-fuzz-prefs-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) std::abort();
        std::atexit([] {
            std::error_code ignored;
            fs::remove_all(workFolder(), ignored);
        });
        return fs::path(pattern);
    }();
    return folder;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fs::path& folder = workFolder();
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folder, ignored))
        fs::remove_all(entry.path(), ignored);
    const fs::path file = folder / "settings.json";
    {
        std::ofstream out(file, std::ios::binary);
        out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    }

    auto quiet = [](const std::string&) {};
    pw::platform::JsonUserDefaults store(file, quiet);
    auto keys = store.keys();
    for (const auto& key : keys)
        if (!store.object(key)) std::abort(); // a listed key must have a value

    // Writing back what was kept, then reading it in a fresh store, must give it all back.
    store.set("fuzz.marker", std::int64_t{1});
    pw::platform::JsonUserDefaults again(file, quiet);
    for (const auto& key : keys)
        if (again.object(key) != store.object(key)) std::abort();
    if (again.keys().size() != store.keys().size()) std::abort();
    return 0;
}
