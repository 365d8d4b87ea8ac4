// An overload library: wakes the display of its server, and keeps it awake while the server runs.
//
// With MOSA_AWAKE=1. A connection of its own to the X server suspends the screen saver and the
// timers of DPMS: X counts that for each client, and takes it back when the connection ends,
// however the process does. So nothing of the display's settings is changed, several jobs on one
// display do not disturb each other, and the display rests again some time after the last of them,
// as its settings say.
//
// MOSA_BLANK_AFTER is so many minutes, and changes these settings: they rest while they are
// suspended, so that they are set at once, and hold whatever becomes of the server. 0: the display
// never rests.
//
// A display without these extensions has no such timers, or none that could be suspended: nothing
// is said.
#include "overload/library.h"
#include "overload/ownEntry.h"
#include "overload/xRequest.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include <X11/Xmd.h>
#include <X11/extensions/dpmsproto.h>
#include <X11/extensions/saverproto.h>

namespace {

xcb_extension_t screenSaver{"MIT-SCREEN-SAVER", 0}, powerManagement{"DPMS", 0};

void restAfter(xcb_connection_t* x, long minutes)
{
    constexpr long longest = 32767; // seconds, of the screen saver
    const auto seconds = static_cast<std::int16_t>(std::clamp(60 * minutes, 0L, longest));
    if (xcb_get_screen_saver_reply_t* now =
            xcb_get_screen_saver_reply(x, xcb_get_screen_saver(x), nullptr)) {
        xcb_set_screen_saver(x, seconds, static_cast<std::int16_t>(now->interval),
                             XCB_BLANKING_PREFERRED, now->allow_exposures);
        std::free(now);
    }
    if (!isThere(x, powerManagement))
        return;
    const auto time = static_cast<CARD16>(seconds);
    xDPMSSetTimeoutsReq times{};
    times.standby = times.suspend = times.off = time;
    tell(x, powerManagement, X_DPMSSetTimeouts, times);
    tell(x, powerManagement, X_DPMSEnable, xDPMSEnableReq{});
}

void wake(xcb_connection_t* x)
{
    if (isThere(x, screenSaver)) {
        xScreenSaverSuspendReq request{};
        request.suspend = 1;
        tell(x, screenSaver, X_ScreenSaverSuspend, request);
    }
    xcb_force_screen_saver(x, XCB_SCREEN_SAVER_RESET);
    if (!isThere(x, powerManagement))
        return;
    constexpr CARD16 on = 0;
    auto* const info = ask<xDPMSInfoReply>(x, powerManagement, X_DPMSInfo, xDPMSInfoReq{});
    if (info && info->state && info->power_level != on) {
        xDPMSForceLevelReq request{};
        request.level = on;
        tell(x, powerManagement, X_DPMSForceLevel, request);
    }
    std::free(info);
}

} // namespace

extern "C" void Overload(glOp*)
{
    const char* const wanted = std::getenv("MOSA_AWAKE");
    if (!wanted || std::string_view(wanted) != "1")
        return;
    WallEntry entry;
    if (!readOwnEntry(entry))
        return; // the server will say so
    xcb_connection_t* const x = xcb_connect(entry.dpyName.c_str(), nullptr);
    if (xcb_connection_has_error(x)) {
        xcb_disconnect(x);
        return;
    }
    wake(x);
    if (const char* const minutes = std::getenv("MOSA_BLANK_AFTER"))
        restAfter(x, std::atol(minutes));
    std::free(xcb_get_input_focus_reply(x, xcb_get_input_focus(x), nullptr)); // all is done by now
    // The connection stays: the kernel closes it with the process.
}
