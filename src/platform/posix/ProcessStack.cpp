#include "platform/posix/ProcessStack.h"

#include <cstdlib>
#include <cxxabi.h>
#include <execinfo.h>
#include <memory>

namespace pw::platform {

namespace {

constexpr int kMaxFrames = 128;

// "./prog(_ZN2pw3fooEv+0x1a) [0x5555]" -> "./prog(pw::foo()+0x1a) [0x5555]".
std::string readableSymbol(const char* raw) {
    std::string symbol(raw);
    const auto open = symbol.find('(');
    const auto plus = symbol.find('+', open == std::string::npos ? 0 : open);
    if (open == std::string::npos || plus == std::string::npos || plus == open + 1) return symbol;
    const std::string mangled = symbol.substr(open + 1, plus - open - 1);
    int status = 0;
    std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status), &std::free);
    if (status != 0 || !name) return symbol;
    return symbol.substr(0, open + 1) + name.get() + symbol.substr(plus);
}

} // namespace

void loadStackUnwinder() {
    void* frame[1];
    ::backtrace(frame, 1);
}

std::vector<std::string> processStackSymbols(int ownFrames) {
    void* frames[kMaxFrames];
    const int count = ::backtrace(frames, kMaxFrames);
    std::unique_ptr<char*, decltype(&std::free)> symbols(::backtrace_symbols(frames, count),
                                                         &std::free);
    std::vector<std::string> out;
    if (!symbols) return out;
    for (int i = 1 + (ownFrames > 0 ? ownFrames : 0); i < count; ++i)
        out.push_back(readableSymbol(symbols.get()[i]));
    return out;
}

void writeProcessStack(int fd) {
    void* frames[kMaxFrames];
    const int count = ::backtrace(frames, kMaxFrames);
    if (count > 1) ::backtrace_symbols_fd(frames + 1, count - 1, fd);
}

} // namespace pw::platform
