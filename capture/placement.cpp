// Where the program's window stands in the area that is stretched over the wall.
#include "capture/contexts.h"
#include "capture/native.h"
#include "capture/stream.h"

#include <algorithm>
#include <cmath>
#include <cstring>

Placement placementOf(WindowSize size)
{
    const CaptureOptions& options = captureOptions;
    if (!options.fit || std::strcmp(options.fit, "middle") != 0)
        return {0, 0, size.width, size.height};
    return inMiddle(size.width, size.height, options.wallWidth, options.wallHeight);
}

ShownPlace shownPlaceOf(WindowSize size, bool asPicture)
{
    const CaptureOptions& options = captureOptions;
    Placement area{0, 0, options.wallWidth, options.wallHeight};
    if (!asPicture || area.width <= 0 || area.height <= 0 || size.width <= 0 || size.height <= 0)
        return {placementOf(size), size};
    const auto fits = [&options](const char* how) {
        return options.fit && std::strcmp(options.fit, how) == 0;
    };
    WindowSize shown{area.width, area.height};
    if (!fits("stretch")) {
        const double factor =
            std::min(double{1} * area.width / size.width, double{1} * area.height / size.height);
        const auto enlarged = [factor](int pixels) {
            return std::max(static_cast<int>(std::lround(factor * pixels)), 1);
        };
        shown = {enlarged(size.width), enlarged(size.height)};
    }
    if (fits("middle")) {
        area.dx = (area.width - shown.width) / 2;
        area.dy = (area.height - shown.height) / 2;
    }
    return {area, shown};
}

void recordViewport(GLint x, GLint y, GLsizei width, GLsizei height)
{
    const Placement area = placementOf(currentWindowSize());
    record<Op::glViewport, Effect::state>(
        ViewportBlock{x + area.dx, y + area.dy, width, height, area.width, area.height});
}

void recordScissor()
{
    const WindowSize size = currentWindowSize();
    const Placement area = placementOf(size);
    GLint box[4] = {0, 0, size.width, size.height};
    const bool margins = area.dx > 0 || area.dy > 0;
    if (currentContext().scissorOn || !margins)
        callNative<Op::glGetIntegerv>(GL_SCISSOR_BOX, box);
    record<Op::glScissor, Effect::state>(box[0] + area.dx, box[1] + area.dy, box[2], box[3]);
}
