// The tests that operations on the current drawable begin with.
#pragma once

#include "coding/invariant.h"
#include "coding/server_overload/overloads.h"

/// The context of the current drawable. Fails without a drawable or a context.
inline LocalContextInfo&
currentContext(std::source_location where = std::source_location::current())
{
    require(currDrawableInfo, "currDrawableInfo", where);
    require(currDrawableInfo->lctx, "currDrawableInfo->lctx", where);
    return *currDrawableInfo->lctx;
}

/// The same, after the test for a local display.
inline LocalContextInfo&
currentContextOnDisplay(std::source_location where = std::source_location::current())
{
    require(currLocalDisplay, "currLocalDisplay", where);
    return currentContext(where);
}
