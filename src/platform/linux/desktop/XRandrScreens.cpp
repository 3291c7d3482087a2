#include "platform/linux/desktop/XRandrScreens.h"

#include "platform/linux/desktop/XConnection.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <algorithm>

namespace pw::linuxdesktop {

namespace {

constexpr std::string_view kCategory = "Display";

const RandrOutput* primaryOf(const std::vector<RandrOutput>& outputs) {
    for (const auto& output : outputs)
        if (output.primary) return &output;
    return outputs.empty() ? nullptr : &outputs.front();
}

// `count` 32-bit items of a root window property (as longs, the way Xlib gives them).
std::vector<long> cardinals(Display* x, Window root, const char* name, long count) {
    std::vector<long> values;
    const Atom atom = XInternAtom(x, name, True);
    if (atom == None) return values;
    Atom type = None;
    int format = 0;
    unsigned long items = 0, after = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(x, root, atom, 0, count, False, XA_CARDINAL, &type, &format, &items,
                           &after, &data) == Success &&
        data && format == 32) {
        const auto* longs = reinterpret_cast<const long*>(data);
        values.assign(longs, longs + items);
    }
    if (data) XFree(data);
    return values;
}

} // namespace

std::shared_ptr<XRandrScreens> XRandrScreens::create(const std::optional<std::string>& displayName,
                                                     DisplaySource source, DesktopLog log) {
    std::string whyNot;
    auto connection = openRandr(displayName, whyNot);
    if (!connection) {
        log.error(kCategory, "Screens and pointer from the X server unavailable: " + whyNot);
        return nullptr;
    }
    return std::shared_ptr<XRandrScreens>(new XRandrScreens(std::move(connection), std::move(source)));
}

XRandrScreens::XRandrScreens(std::unique_ptr<XConnection> connection, DisplaySource source)
    : connection_(std::move(connection)), source_(std::move(source)) {}

XRandrScreens::~XRandrScreens() = default;

platform::Point XRandrScreens::origin(const std::vector<RandrOutput>& outputs, unsigned rootHeight) {
    if (const auto* primary = primaryOf(outputs))
        return {static_cast<double>(primary->x),
                static_cast<double>(primary->y) + static_cast<double>(primary->height)};
    return {0, static_cast<double>(rootHeight)};
}

std::vector<platform::Screen>
XRandrScreens::arrange(const std::vector<RandrOutput>& outputs,
                       const std::vector<std::optional<platform::DisplayID>>& displays,
                       std::optional<WorkArea> workArea) {
    std::vector<platform::Screen> screens;
    if (outputs.empty()) return screens;
    const auto base = origin(outputs, 0);
    // A rectangle in root pixels (y down) in the program's convention (y up).
    auto flip = [&](double x, double y, double width, double height) {
        return platform::Rect{x - base.x, base.y - (y + height), width, height};
    };

    std::vector<std::size_t> order(outputs.size());
    for (std::size_t i = 0; i < order.size(); ++i)
        order[i] = i;
    const auto* primary = primaryOf(outputs);
    std::stable_partition(order.begin(), order.end(),
                          [&](std::size_t i) { return &outputs[i] == primary; });

    std::vector<unsigned long> seenCrtcs;
    for (const auto i : order) {
        const auto& output = outputs[i];
        // Mirrored outputs share a CRTC: one screen, numbered by the first paired display.
        if (std::find(seenCrtcs.begin(), seenCrtcs.end(), output.crtc) != seenCrtcs.end())
            continue;
        seenCrtcs.push_back(output.crtc);
        platform::Screen screen;
        screen.number = displays[i];
        for (std::size_t j = 0; j < outputs.size() && !screen.number; ++j)
            if (outputs[j].crtc == output.crtc) screen.number = displays[j];
        screen.localizedName = output.identity.name;
        // Built-in panels are named by their kind of connector, as in the kernel.
        for (const std::string_view panel : {"eDP", "LVDS", "DSI"})
            if (output.identity.name.starts_with(panel)) screen.builtIn = true;
        screen.frame = flip(output.x, output.y, output.width, output.height);
        if (workArea) {
            const double left = std::max<double>(output.x, workArea->x);
            const double top = std::max<double>(output.y, workArea->y);
            const double right = std::min<double>(output.x + static_cast<double>(output.width),
                                                  workArea->x + static_cast<double>(workArea->width));
            const double bottom =
                std::min<double>(output.y + static_cast<double>(output.height),
                                 workArea->y + static_cast<double>(workArea->height));
            if (right > left && bottom > top)
                screen.visibleFrameOverride = flip(left, top, right - left, bottom - top);
        }
        screens.push_back(std::move(screen));
    }
    return screens;
}

std::optional<XRandrScreens::WorkArea> XRandrScreens::workArea() {
    Display* x = connection_->display();
    const Window root = connection_->root();
    const auto current = cardinals(x, root, "_NET_CURRENT_DESKTOP", 1);
    const long desktop = current.empty() ? 0 : std::max(0L, current.front());
    const auto areas = cardinals(x, root, "_NET_WORKAREA", 4 * 64);
    const auto at = static_cast<std::size_t>(desktop) * 4;
    if (areas.size() < at + 4) return std::nullopt;
    if (areas[at + 2] <= 0 || areas[at + 3] <= 0) return std::nullopt;
    return WorkArea{static_cast<int>(areas[at]), static_cast<int>(areas[at + 1]),
                    static_cast<unsigned>(areas[at + 2]), static_cast<unsigned>(areas[at + 3])};
}

std::vector<platform::Screen> XRandrScreens::screens() {
    std::lock_guard lock(mutex_);
    if (connection_->lost()) return {};
    const auto outputs = activeOutputs(*connection_);
    std::vector<OutputIdentity> identities;
    for (const auto& output : outputs)
        identities.push_back(output.identity);
    auto screens = arrange(outputs, pairOutputs(identities, source_), workArea());
    if (source_.builtIn)
        for (auto& screen : screens)
            if (screen.number && source_.builtIn(*screen.number)) screen.builtIn = true;
    return screens;
}

std::optional<platform::Screen> XRandrScreens::mainScreen() {
    auto all = screens();
    if (all.empty()) return std::nullopt;
    return all.front();
}

platform::Point XRandrScreens::pointerLocation() {
    std::lock_guard lock(mutex_);
    if (connection_->lost()) return {};
    Display* x = connection_->display();
    Window rootReturn = 0, child = 0;
    int rootX = 0, rootY = 0, winX = 0, winY = 0;
    unsigned mask = 0;
    if (!XQueryPointer(x, connection_->root(), &rootReturn, &child, &rootX, &rootY, &winX, &winY,
                       &mask))
        return {}; // the pointer is on another X screen
    const auto base = origin(activeOutputs(*connection_),
                             static_cast<unsigned>(DisplayHeight(x, DefaultScreen(x))));
    // The centre of the pixel: inside the screen whichever of its edges a caller counts.
    return {rootX - base.x + 0.5, base.y - rootY - 0.5};
}

} // namespace pw::linuxdesktop
