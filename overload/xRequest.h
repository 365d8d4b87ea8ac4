// Requests of X's extensions over a connection of xcb's, as the extensions' own headers have them:
// nodes need no other library for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include <xcb/xcb.h>
#include <xcb/xcbext.h>

inline bool isThere(xcb_connection_t* x, xcb_extension_t& extension)
{
    const xcb_query_extension_reply_t* reply = xcb_get_extension_data(x, &extension);
    return reply && reply->present;
}

namespace xRequest {

template <class Request>
unsigned send(xcb_connection_t* x, xcb_extension_t& extension, std::uint8_t number, Request request,
              bool isAnswered, int flags, std::span<const std::byte> more)
{
    // xcb fills in the numbers and the length, and uses the two parts before.
    iovec parts[4]{
        {}, {}, {&request, sizeof request}, {const_cast<std::byte*>(more.data()), more.size()}};
    const xcb_protocol_request_t protocol{.count = more.empty() ? 1U : 2U,
                                          .ext = &extension,
                                          .opcode = number,
                                          .isvoid = !isAnswered};
    return xcb_send_request(x, flags, parts + 2, &protocol);
}

} // namespace xRequest

/// What a display answers, to be freed; null when it refuses.
template <class Reply, class Request>
Reply* ask(xcb_connection_t* x, xcb_extension_t& extension, std::uint8_t number, Request request)
{
    const unsigned sent =
        xRequest::send(x, extension, number, request, true, XCB_REQUEST_CHECKED, {});
    return static_cast<Reply*>(xcb_wait_for_reply(x, sent, nullptr));
}

/// Waits until it is done, or refused.
template <class Request>
void tell(xcb_connection_t* x, xcb_extension_t& extension, std::uint8_t number, Request request)
{
    const unsigned sent =
        xRequest::send(x, extension, number, request, false, XCB_REQUEST_CHECKED, {});
    std::free(xcb_request_check(x, {sent}));
}

/// Does not wait, nor flush; `more` follows the request, a multiple of four bytes.
template <class Request>
void post(xcb_connection_t* x, xcb_extension_t& extension, std::uint8_t number, Request request,
          std::span<const std::byte> more = {})
{
    xRequest::send(x, extension, number, request, false, 0, more);
}
