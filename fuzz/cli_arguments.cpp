// Feeds arbitrary text to what the command line makes of its arguments: a feature code, a
// feature value and a setting (key, newline, value). Nothing may crash, and whatever is
// accepted must read back the same from the text the program prints for it.
#include "cli/Arguments.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const auto newline = input.find('\n');
    const std::string_view first = input.substr(0, newline);
    const std::string_view second =
        newline == std::string_view::npos ? std::string_view() : input.substr(newline + 1);

    if (const auto code = pw::cli::parseCode(first)) {
        // A code without a name is shown in hex, which leads back to it.
        const std::string title = pw::cli::codeTitle(*code);
        if (title.starts_with("VCP ") &&
            pw::cli::parseCode(std::string_view(title).substr(4)) != code)
            std::abort();
        if (const auto value = pw::cli::parseValue(*code, second))
            (void)pw::cli::valueLabel(*code, *value);
    }

    std::string error;
    if (const auto value = pw::cli::parseSetting(first, second, error)) {
        if (!error.empty()) std::abort();
        // What `config get` prints is accepted by `config set` as the same value.
        std::string again;
        const auto reread = pw::cli::parseSetting(first, pw::cli::settingText(*value), again);
        if (!reread || *reread != *value) std::abort();
    } else if (error.empty()) {
        std::abort(); // a refusal always says why
    }
    return 0;
}
