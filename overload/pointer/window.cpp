#include "overload/pointer/window.h"
#include "overload/xRequest.h"

#include <algorithm>
#include <bit>
#include <memory>

#include <X11/Xmd.h>
#include <X11/extensions/compositeproto.h>
#include <X11/extensions/shapeproto.h>

namespace {

xcb_extension_t composite{"Composite", 0}, shaping{"SHAPE", 0};

struct Freed {
    void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using Answer = std::unique_ptr<T, Freed>;

const xcb_screen_t* screenOf(xcb_connection_t* x, int number)
{
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(x));
    for (; screens.rem > 0 && number > 0; --number)
        xcb_screen_next(&screens);
    return screens.rem > 0 && number == 0 ? screens.data : nullptr;
}

// False when no screen has a visual of that number.
bool findVisual(xcb_connection_t* x, xcb_visualid_t number, xcb_visualtype_t& found)
{
    for (auto screen = xcb_setup_roots_iterator(xcb_get_setup(x)); screen.rem > 0;
         xcb_screen_next(&screen))
        for (auto depth = xcb_screen_allowed_depths_iterator(screen.data); depth.rem > 0;
             xcb_depth_next(&depth))
            for (auto visual = xcb_depth_visuals_iterator(depth.data); visual.rem > 0;
                 xcb_visualtype_next(&visual))
                if (visual.data->visual_id == number) {
                    found = *visual.data;
                    return true;
                }
    return false;
}

void keepBeneath(ShownPointer& pointer, bool keeps)
{
    if (pointer.keepsBeneath == keeps)
        return;
    pointer.keepsBeneath = keeps;
    constexpr CARD8 automatic = 0;
    if (keeps) {
        xCompositeRedirectWindowReq request{};
        request.window = pointer.beneath;
        request.update = automatic;
        post(pointer.x, composite, X_CompositeRedirectWindow, request);
    } else {
        xCompositeUnredirectWindowReq request{};
        request.window = pointer.beneath;
        request.update = automatic;
        post(pointer.x, composite, X_CompositeUnredirectWindow, request);
    }
}

void hide(ShownPointer& pointer)
{
    if (!pointer.isShown)
        return;
    pointer.isShown = false;
    pointer.hiddenSince = std::chrono::steady_clock::now();
    xcb_unmap_window(pointer.x, pointer.own);
}

void listen(ShownPointer& pointer, std::uint32_t events)
{
    if (pointer.beneath != XCB_NONE)
        xcb_change_window_attributes(pointer.x, pointer.beneath, XCB_CW_EVENT_MASK, &events);
}

void leaveBeneath(ShownPointer& pointer)
{
    hide(pointer);
    if (pointer.own != XCB_NONE)
        xcb_destroy_window(pointer.x, pointer.own);
    keepBeneath(pointer, false);
    listen(pointer, 0);
    pointer.own = pointer.beneath = XCB_NONE;
}

// Makes the pointer's window beside another, in the same window. False when that is not there.
bool standAbove(ShownPointer& pointer, xcb_window_t window)
{
    xcb_connection_t* const x = pointer.x;
    const auto treeOf = xcb_query_tree(x, window);
    const Answer<xcb_query_tree_reply_t> tree{xcb_query_tree_reply(x, treeOf, nullptr)};
    if (!tree)
        return false;
    const auto attributesOf = xcb_get_window_attributes(x, tree->parent);
    const auto geometryOf = xcb_get_geometry(x, tree->parent);
    const Answer<xcb_get_window_attributes_reply_t> attributes{
        xcb_get_window_attributes_reply(x, attributesOf, nullptr)};
    const Answer<xcb_get_geometry_reply_t> geometry{xcb_get_geometry_reply(x, geometryOf, nullptr)};
    if (!attributes || !geometry || !findVisual(x, attributes->visual, pointer.visual))
        return false;
    pointer.depth = geometry->depth;
    pointer.beneath = window;
    listen(pointer, XCB_EVENT_MASK_STRUCTURE_NOTIFY);
    pointer.own = xcb_generate_id(x);
    constexpr std::uint32_t overrides = 1;
    xcb_create_window(x, XCB_COPY_FROM_PARENT, pointer.own, tree->parent, 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_OUTPUT, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                      &overrides);
    pointer.width = pointer.height = 0;
    return true;
}

// A colour, as a visual has it.
std::uint32_t pixelOf(const xcb_visualtype_t& visual, std::uint8_t depth, std::uint32_t colour)
{
    std::uint32_t pixel =
        depth == 32 ? ~(visual.red_mask | visual.green_mask | visual.blue_mask) : 0;
    std::uint32_t shift = 16;
    for (const std::uint32_t mask : {visual.red_mask, visual.green_mask, visual.blue_mask}) {
        if (mask == 0)
            return pixel;
        const std::uint64_t most = mask >> std::countr_zero(mask);
        pixel |= static_cast<std::uint32_t>((colour >> shift & 0xff) * most / 255)
                 << std::countr_zero(mask);
        shift -= 8;
    }
    return pixel;
}

// The rows of an image as the X server wants them; empty for a depth that it has no images of.
struct Rows {
    std::vector<std::uint8_t> bytes;
    std::size_t each = 0; // bytes of a row
};

Rows rowsOf(const ShownPointer& pointer, const PointerImage& image)
{
    const xcb_setup_t* const setup = xcb_get_setup(pointer.x);
    Rows rows;
    for (auto format = xcb_setup_pixmap_formats_iterator(setup); format.rem > 0;
         xcb_format_next(&format)) {
        if (format.data->depth != pointer.depth)
            continue;
        const std::size_t bytes = format.data->bits_per_pixel / 8,
                          pad = format.data->scanline_pad / 8;
        const auto width = static_cast<std::size_t>(image.width);
        rows.each = (width * bytes + pad - 1) / pad * pad;
        rows.bytes.resize(rows.each * static_cast<std::size_t>(image.height));
        for (std::size_t i = 0; i < image.colours.size(); ++i) {
            const std::uint32_t pixel = pixelOf(pointer.visual, pointer.depth, image.colours[i]);
            for (std::size_t byte = 0; byte < bytes; ++byte) {
                const bool isReversed = setup->image_byte_order == XCB_IMAGE_ORDER_MSB_FIRST;
                const std::size_t significance = isReversed ? bytes - 1 - byte : byte;
                rows.bytes[i / width * rows.each + i % width * bytes + byte] =
                    static_cast<std::uint8_t>(pixel >> (8 * significance));
            }
        }
    }
    return rows;
}

// The window is the image: the X server paints its background wherever it comes to.
void draw(ShownPointer& pointer, const PointerImage& image)
{
    xcb_connection_t* const x = pointer.x;
    const auto width = static_cast<std::uint16_t>(image.width),
               height = static_cast<std::uint16_t>(image.height);
    const xcb_pixmap_t pixmap = xcb_generate_id(x);
    const xcb_gcontext_t gc = xcb_generate_id(x);
    xcb_create_pixmap(x, pointer.depth, pixmap, pointer.own, width, height);
    xcb_create_gc(x, gc, pixmap, 0, nullptr);
    const Rows rows = rowsOf(pointer, image);
    const std::size_t atOnce = rows.each > 0 ? std::max<std::size_t>(1, 65536 / rows.each) : 0;
    for (std::size_t row = 0; atOnce > 0 && row < height; row += atOnce) {
        const std::size_t count = std::min(atOnce, height - row);
        xcb_put_image(x, XCB_IMAGE_FORMAT_Z_PIXMAP, pixmap, gc, width,
                      static_cast<std::uint16_t>(count), 0, static_cast<std::int16_t>(row), 0,
                      pointer.depth, static_cast<std::uint32_t>(count * rows.each),
                      rows.bytes.data() + row * rows.each);
    }
    const std::uint32_t size[] = {width, height};
    xcb_configure_window(x, pointer.own, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
    xcb_change_window_attributes(x, pointer.own, XCB_CW_BACK_PIXMAP, &pixmap);
    xShapeRectanglesReq request{};
    request.op = ShapeSet;
    request.destKind = ShapeBounding;
    request.ordering = 3; // YXBanded: by rows, no two of a row touch
    request.dest = pointer.own;
    post(x, shaping, X_ShapeRectangles, request, std::as_bytes(std::span(image.outline)));
    xcb_clear_area(x, 0, pointer.own, 0, 0, 0, 0);
    xcb_free_gc(x, gc);
    xcb_free_pixmap(x, pixmap);
    pointer.width = image.width;
    pointer.height = image.height;
}

bool touches(const PointerArea& a, const PointerArea& b)
{
    return a.x < b.x + b.w && b.x < a.x + a.w && a.y < b.y + b.h && b.y < a.y + a.h;
}

void waitForDisplay(xcb_connection_t* x)
{
    std::free(xcb_get_input_focus_reply(x, xcb_get_input_focus(x), nullptr));
}

} // namespace

bool openPointerDisplay(ShownPointer& pointer, const char* display, int screen, std::string& why)
{
    pointer.x = xcb_connect(display, nullptr);
    const xcb_screen_t* const root =
        xcb_connection_has_error(pointer.x) ? nullptr : screenOf(pointer.x, screen);
    if (!root)
        why = "it cannot be opened";
    else if (!isThere(pointer.x, shaping))
        why = "it has no SHAPE extension";
    else if (!isThere(pointer.x, composite))
        why = "it has no Composite extension";
    if (why.empty()) {
        xCompositeQueryVersionReq version{};
        version.minorVersion = 4;
        std::free(ask<xCompositeQueryVersionReply>(pointer.x, composite, X_CompositeQueryVersion,
                                                   version));
        if (pointer.tile.w == 0) {
            pointer.tile.w = root->width_in_pixels;
            pointer.tile.h = root->height_in_pixels;
            pointer.tile.y -= pointer.tile.h;
        }
        return true;
    }
    xcb_disconnect(pointer.x);
    pointer.x = nullptr;
    return false;
}

bool showPointer(ShownPointer& pointer, const PointerPlace& place, xcb_window_t beneath)
{
    xcb_connection_t* const x = pointer.x;
    if (beneath != XCB_NONE && beneath != pointer.beneath) {
        leaveBeneath(pointer);
        if (!standAbove(pointer, beneath))
            return false;
    }
    const PointerArea area = pointerArea(place, pointer.shape);
    if (beneath == XCB_NONE || pointer.pixels.empty() || !touches(area, pointer.tile)) {
        hide(pointer);
    } else {
        if (pointer.isNewShape || area.w != pointer.width || area.h != pointer.height)
            draw(pointer, enlarged(pointer.shape, pointer.pixels, area.w, area.h));
        pointer.isNewShape = false;
        keepBeneath(pointer, true);
        const std::uint32_t values[] = {static_cast<std::uint32_t>(area.x - pointer.tile.x),
                                        static_cast<std::uint32_t>(area.y - pointer.tile.y),
                                        pointer.beneath, XCB_STACK_MODE_ABOVE};
        xcb_configure_window(x, pointer.own,
                             XCB_CONFIG_WINDOW_X | XCB_CONFIG_WINDOW_Y | XCB_CONFIG_WINDOW_SIBLING |
                                 XCB_CONFIG_WINDOW_STACK_MODE,
                             values);
        if (!pointer.isShown)
            xcb_map_window(x, pointer.own);
        pointer.isShown = true;
    }
    waitForDisplay(x);
    return true;
}

void followBeneath(ShownPointer& pointer)
{
    bool wasRaised = false;
    while (const Answer<xcb_generic_event_t> event{xcb_poll_for_event(pointer.x)})
        wasRaised |= (event->response_type & 0x7f) == XCB_CONFIGURE_NOTIFY;
    if (!wasRaised || !pointer.isShown)
        return;
    const std::uint32_t values[] = {pointer.beneath, XCB_STACK_MODE_ABOVE};
    xcb_configure_window(pointer.x, pointer.own,
                         XCB_CONFIG_WINDOW_SIBLING | XCB_CONFIG_WINDOW_STACK_MODE, values);
    xcb_flush(pointer.x);
}

int letBeneathGo(ShownPointer& pointer)
{
    using namespace std::chrono;
    constexpr milliseconds grace(1000);
    if (!pointer.keepsBeneath || pointer.isShown)
        return -1;
    const auto passed = duration_cast<milliseconds>(steady_clock::now() - pointer.hiddenSince);
    if (passed < grace)
        return static_cast<int>((grace - passed).count()) + 1;
    keepBeneath(pointer, false);
    xcb_flush(pointer.x);
    return -1;
}
