#include "platform/linux/desktop/Compositing.h"

#include "platform/linux/desktop/XConnection.h"

#include <X11/Xlib.h>

#include <string>

namespace pw::linuxdesktop {

bool windowSystemComposites(const SessionFacts& session) {
    if (session.wayland()) return true;
    if (!session.xDisplay) return false;
    std::string whyNot;
    const auto x = XConnection::open(session.xDisplay, whyNot);
    if (!x) return false;
    Display* display = x->display();
    const std::string name = "_NET_WM_CM_S" + std::to_string(DefaultScreen(display));
    const Atom selection = XInternAtom(display, name.c_str(), False);
    return selection != None && XGetSelectionOwner(display, selection) != None;
}

} // namespace pw::linuxdesktop
