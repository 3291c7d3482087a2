#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace pw::platform {

// A C library (sd-bus, libwayland, Xlib, libudev) calls our code through frames that know
// nothing of C++ exceptions: one thrown through them ends the process. Every callback such
// a library makes, and every thread that only runs such a library's loop, runs its body
// through guardCallback. Whatever the body throws stops there: `report` gets one line
// naming the callback and what was thrown, the C side gets `fallback`, and the program
// carries on.

namespace detail {
template <typename Report>
void reportCallbackFailure(std::string_view name, const char* what, Report& report) noexcept {
    try {
        report(std::string(name) + " failed and was stopped there: " + what +
               "; the program carries on");
    } catch (...) {
        // Nothing left to tell it with; the caller still gets its fallback.
    }
}
} // namespace detail

template <typename Result, typename Body, typename Report>
Result guardCallback(std::string_view name, Result fallback, Body&& body,
                     Report&& report) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (const std::exception& error) {
        detail::reportCallbackFailure(name, error.what(), report);
    } catch (...) {
        detail::reportCallbackFailure(name, "an exception of unknown type", report);
    }
    return fallback;
}

template <typename Body, typename Report>
requires std::is_void_v<std::invoke_result_t<Body>>
void guardCallback(std::string_view name, Body&& body, Report&& report) noexcept {
    guardCallback(
        name, 0,
        [&] {
            std::forward<Body>(body)();
            return 0;
        },
        report);
}

} // namespace pw::platform
