// How late the mouse pointer of a running program is on the wall: moves it on the desk 60 times a
// second, and listens at the tiles' displays for its window there. The program, any, is shown with
// a window of 300 x 300 at the desk's upper left, on a wall of 600 x 300 of two tiles:
//
//   bench_pointer DESK LEFT RIGHT
#include "client/windowState.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <vector>

#include <poll.h>

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int edge = 300, moves = 600;
constexpr std::chrono::microseconds frame(16'667);

struct Display {
    xcb_connection_t* x;
    xcb_window_t root;
};

Display open(const char* name)
{
    xcb_connection_t* const x = xcb_connect(name, nullptr);
    if (!xcb_connection_has_error(x))
        return {x, xcb_setup_roots_iterator(xcb_get_setup(x)).data->root};
    std::fprintf(stderr, "%s cannot be opened\n", name);
    std::exit(1);
}

// True when the pointer's window, the only small one, has come to where its hot spot, in its
// middle, is at this place of the tile.
bool hasCome(xcb_connection_t* x, int left, int top)
{
    bool has = false;
    while (const Reply<xcb_generic_event_t> event{xcb_poll_for_event(x)}) {
        const auto* const moved = reinterpret_cast<xcb_configure_notify_event_t*>(event.get());
        has |= (event->response_type & 0x7f) == XCB_CONFIGURE_NOTIFY && moved->width < edge &&
               std::abs(moved->x + moved->width / 2 - left) < 4 &&
               std::abs(moved->y + moved->height / 2 - top) < 4;
    }
    return has;
}

std::optional<Milliseconds> await(const std::vector<Display>& tiles, int x, int y,
                                  Clock::time_point begun, Clock::time_point until)
{
    std::optional<Milliseconds> lag;
    while (Clock::now() < until) {
        std::vector<pollfd> events;
        for (std::size_t i = 0; i < tiles.size(); ++i) {
            if (hasCome(tiles[i].x, x - static_cast<int>(i) * edge, y) && !lag)
                lag = Clock::now() - begun;
            events.push_back({xcb_get_file_descriptor(tiles[i].x), POLLIN, 0});
        }
        const auto left = std::max(Clock::duration{}, until - Clock::now());
        const timespec time{0, std::chrono::nanoseconds(left).count()};
        ppoll(events.data(), events.size(), &time, nullptr);
    }
    return lag;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    const Display desk = open(argv[1]);
    const std::vector<Display> tiles{open(argv[2]), open(argv[3])};
    for (const Display& tile : tiles) {
        constexpr std::uint32_t events = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
        xcb_change_window_attributes(tile.x, tile.root, XCB_CW_EVENT_MASK, &events);
        xcb_flush(tile.x);
    }
    std::vector<double> lags;
    Clock::time_point begun = Clock::now();
    for (int i = 0; i < moves; ++i) {
        const int x = 20 + i * 37 % 110 + i % 2 * 130, y = 20 + i * 13 % 260;
        // Not in step with whoever looks at regular times.
        const Clock::time_point until = begun + frame + std::chrono::microseconds(i * 331 % 1000);
        xcb_warp_pointer(desk.x, XCB_NONE, desk.root, 0, 0, 0, 0, static_cast<std::int16_t>(x),
                         static_cast<std::int16_t>(y));
        xcb_flush(desk.x);
        if (const auto lag = await(tiles, x + edge / 2, y, begun, until))
            lags.push_back(lag->count());
        begun = Clock::now();
    }
    std::ranges::sort(lags);
    const auto at = [&lags](std::size_t percent) {
        return lags.empty() ? 0 : lags[(lags.size() - 1) * percent / 100];
    };
    std::printf("%zu of %d moves within a frame; median %.1f ms, 99%% %.1f ms, most %.1f ms\n",
                lags.size(), moves, at(50), at(99), at(100));
    return 0;
}
