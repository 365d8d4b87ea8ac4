// The 24 raster-position overloads, from the operations' prototypes.
#pragma once

#include "coding/server_overload/currentContext.h"

/// Records the application's raster position and places it. Fails without a current context.
void setRasterPosition(double x, double y, double z, double w);

/// Coordinates of the vector forms glRasterPos2dv to glRasterPos4sv: four types of each length.
constexpr int rasterPosLength(Op op) { return 2 + (indexOf(op) - indexOf(Op::glRasterPos2dv)) / 4; }

// Scalar forms: coordinates that are not given are z = 0 and w = 1.
template <class T>
void rasterPosScalars(T x, T y)
{
    setRasterPosition(x, y, 0, 1);
}
template <class T>
void rasterPosScalars(T x, T y, T z)
{
    setRasterPosition(x, y, z, 1);
}
template <class T>
void rasterPosScalars(T x, T y, T z, T w)
{
    setRasterPosition(x, y, z, w);
}

// Vector forms: the values lie in the stream at any address.
template <int n, class T>
void rasterPosVector(const T* v)
{
    double position[4] = {0, 0, 0, 1};
    for (int i = 0; i < n; ++i)
        position[i] = load<T>(reinterpret_cast<const char*>(v) + i * int{sizeof(T)});
    setRasterPosition(position[0], position[1], position[2], position[3]);
}

/// The overload of one of the 24 operations.
template <Op op>
inline constexpr Prototype<op>* rasterPosOverload = [] {
    if constexpr (Signature<Prototype<op>>::arrays == 0)
        return static_cast<Prototype<op>*>(rasterPosScalars);
    else
        return static_cast<Prototype<op>*>(rasterPosVector<rasterPosLength(op)>);
}();
