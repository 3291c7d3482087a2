#include "platform/linux/desktop/RandrOutputs.h"

#include "platform/linux/desktop/XConnection.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

namespace pw::linuxdesktop {

namespace {

// EDIDs are 128 bytes per block and at most 256 blocks; a property is read in 32-bit units.
constexpr long kEdidPropertyLongs = 256 * 128 / 4;

std::vector<std::uint8_t> edidProperty(Display* display, RROutput output, Atom name) {
    std::vector<std::uint8_t> bytes;
    if (name == None) return bytes;
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    if (XRRGetOutputProperty(display, output, name, 0, kEdidPropertyLongs, False, False,
                             AnyPropertyType, &type, &format, &count, &after, &data) == Success &&
        data && format == 8)
        bytes.assign(data, data + count);
    if (data) XFree(data);
    return bytes;
}

std::optional<std::uint32_t> integerProperty(Display* display, RROutput output, Atom name) {
    if (name == None) return std::nullopt;
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    std::optional<std::uint32_t> value;
    if (XRRGetOutputProperty(display, output, name, 0, 1, False, False, AnyPropertyType, &type,
                             &format, &count, &after, &data) == Success &&
        data && format == 32 && count == 1)
        // Xlib hands 32-bit property items over as longs.
        value = static_cast<std::uint32_t>(*reinterpret_cast<const long*>(data));
    if (data) XFree(data);
    return value;
}

} // namespace

bool hasRandr(XConnection& connection, std::string& whyNot) {
    int eventBase = 0, errorBase = 0, major = 0, minor = 0;
    if (!XRRQueryExtension(connection.display(), &eventBase, &errorBase)) {
        whyNot = "the X server at \"" + connection.name() + "\" has no RandR extension";
        return false;
    }
    if (!XRRQueryVersion(connection.display(), &major, &minor) || major < 1 ||
        (major == 1 && minor < 2)) {
        whyNot = "the X server at \"" + connection.name() + "\" has RandR " +
                 std::to_string(major) + "." + std::to_string(minor) + ", 1.2 is needed";
        return false;
    }
    return true;
}

std::unique_ptr<XConnection> openRandr(const std::optional<std::string>& displayName,
                                       std::string& whyNot) {
    auto connection = XConnection::open(displayName, whyNot);
    if (connection && !hasRandr(*connection, whyNot)) connection.reset();
    return connection;
}

std::vector<RandrOutput> activeOutputs(XConnection& connection) {
    std::vector<RandrOutput> outputs;
    Display* display = connection.display();
    XRRScreenResources* resources = nullptr;
    connection.checked([&] { resources = XRRGetScreenResourcesCurrent(display, connection.root()); });
    if (!resources) return outputs;

    const Atom edidAtom = XInternAtom(display, RR_PROPERTY_RANDR_EDID, True);
    const Atom connectorAtom = XInternAtom(display, "CONNECTOR_ID", True);
    const RROutput primary = XRRGetOutputPrimary(display, connection.root());

    for (int i = 0; i < resources->noutput; ++i) {
        XRROutputInfo* info = XRRGetOutputInfo(display, resources, resources->outputs[i]);
        if (!info) continue;
        if (info->connection == RR_Connected && info->crtc != None) {
            if (XRRCrtcInfo* crtc = XRRGetCrtcInfo(display, resources, info->crtc)) {
                if (crtc->mode != None && crtc->width > 0 && crtc->height > 0) {
                    RandrOutput out;
                    out.identity.name.assign(info->name, static_cast<std::size_t>(info->nameLen));
                    out.identity.edid = edidProperty(display, resources->outputs[i], edidAtom);
                    out.identity.connectorId =
                        integerProperty(display, resources->outputs[i], connectorAtom);
                    out.output = resources->outputs[i];
                    out.crtc = info->crtc;
                    out.x = crtc->x;
                    out.y = crtc->y;
                    out.width = crtc->width;
                    out.height = crtc->height;
                    out.primary = resources->outputs[i] == primary;
                    outputs.push_back(std::move(out));
                }
                XRRFreeCrtcInfo(crtc);
            }
        }
        XRRFreeOutputInfo(info);
    }
    XRRFreeScreenResources(resources);
    connection.takeError(); // an output unplugged while we looked is simply missing
    return outputs;
}

} // namespace pw::linuxdesktop
