#include "platform/linux/XdgAutostart.h"

#include <cctype>
#include <fstream>
#include <iostream>
#include <sstream>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace pw::platform {

namespace {

constexpr const char* kEntryName = "panelwright.desktop";

std::string trim(std::string text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
    std::size_t first = 0;
    while (first < text.size() && std::isspace(static_cast<unsigned char>(text[first]))) ++first;
    return text.substr(first);
}

bool isTrue(const std::string& value) { return value == "true"; }

// Desktop-entry Exec quoting: a path with anything beyond the plain characters goes in
// double quotes, with the four characters that stay special inside them escaped.
std::string quotedExec(const std::string& path) {
    const bool plain = path.find_first_not_of("abcdefghijklmnopqrstuvwxyz"
                                              "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+") ==
                       std::string::npos;
    std::string text;
    for (char c : path) {
        if (c == '%') text += '%'; // a field code otherwise
        text += c;
    }
    if (plain) return text;
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '"' || c == '`' || c == '$' || c == '\\') quoted += "\\\\";
        quoted += c;
    }
    return quoted + "\"";
}

} // namespace

XdgAutostart::XdgAutostart(fs::path configHome, fs::path executable, Report report)
    : entry_(std::move(configHome) / "autostart" / kEntryName),
      executable_(std::move(executable)), report_(std::move(report)) {}

void XdgAutostart::report(const std::string& message) const {
    if (report_)
        report_(message);
    else
        std::cerr << message << "\n";
}

std::string XdgAutostart::entryText(const fs::path& executable) {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Panelwright\n"
           "Comment=Monitor brightness, volume and input from the tray\n"
           "Exec=" + quotedExec(executable.string()) + "\n"
           "Icon=panelwright\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

bool XdgAutostart::isEnabled() const {
    std::ifstream in(entry_);
    if (!in) return false;
    // Only the main group counts; keys of actions further down do not hide the entry.
    bool mainGroup = false;
    std::string line;
    while (std::getline(in, line)) {
        line = trim(line);
        if (line.empty() || line.front() == '#') continue;
        if (line.front() == '[') {
            mainGroup = line == "[Desktop Entry]";
            continue;
        }
        if (!mainGroup) continue;
        const auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        const auto key = trim(line.substr(0, eq));
        const auto value = trim(line.substr(eq + 1));
        if (key == "Hidden" && isTrue(value)) return false;
        if (key == "X-GNOME-Autostart-enabled" && value == "false") return false;
    }
    return true;
}

bool XdgAutostart::setEnabled(bool enabled) {
    std::error_code error;
    if (!enabled) {
        fs::remove(entry_, error);
        if (error) {
            report("Could not remove the autostart entry " + entry_.string() + ": " +
                   error.message() + ". Delete the file to stop starting at login.");
            return false;
        }
        return true;
    }
    fs::create_directories(entry_.parent_path(), error);
    if (error) {
        report("Could not create the autostart folder " + entry_.parent_path().string() + ": " +
               error.message() + ". Check that the folder can be written to.");
        return false;
    }
    const fs::path temporary = entry_.string() + ".tmp-" + std::to_string(::getpid());
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << entryText(executable_);
        out.flush();
        if (!out) {
            fs::remove(temporary, error);
            report("Could not write the autostart entry " + temporary.string() +
                   ". Check that the folder can be written to.");
            return false;
        }
    }
    fs::rename(temporary, entry_, error);
    if (error) {
        std::error_code ignored;
        fs::remove(temporary, ignored);
        report("Could not put the autostart entry in place at " + entry_.string() + ": " +
               error.message() + ".");
        return false;
    }
    return true;
}

fs::path XdgAutostart::appExecutable() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (error) return "panelwright";
    if (self.filename() == "panelwright") return self;
    const fs::path beside = self.parent_path() / "panelwright";
    if (fs::exists(beside, error)) return beside;
    return self;
}

} // namespace pw::platform
