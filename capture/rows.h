// What each operation does, as far as it decides how a call goes to the wall: one row for each, in
// the order of the opcodes, or for each of several that follow one another.
#pragma once

#include "capture/tape.h"

#include <array>
#include <iterator>

/// Whether servers place what they compile into a list: it would stand where it stood at that
/// moment, so lists with such operations are kept, and what they consist of is sent when they are
/// called. `onProjection`: where the projection is the matrix that is meant.
enum class Placed : unsigned char { no, always, onProjection };

struct OperationRow {
    Op first, last;
    Effect effect;
    Placed placed = Placed::no;
};

inline constexpr std::array operationRows = [] {
    // Vertices draw where they stand within glBegin and glEnd, pointers are sent with draws alone.
    // What servers do not perform is never sent, whatever its row says.
    constexpr Effect defines = Effect::defines, state = Effect::state, draws = Effect::draws,
                     own = Effect::own;
    return std::to_array<OperationRow>({
        {Op::glClearIndex, Op::glClearColor, state},
        {Op::glClear, Op::glClear, draws},
        {Op::glIndexMask, Op::glEdgeFlagv, state},
        {Op::glScissor, Op::glScissor, state, Placed::always},
        {Op::glClipPlane, Op::glDisable, state},
        {Op::glIsEnabled, Op::glIsEnabled, own},
        {Op::glEnableClientState, Op::glClearAccum, state},
        {Op::glAccum, Op::glAccum, draws},
        {Op::glMatrixMode, Op::glViewport, state, Placed::always},
        {Op::glPushMatrix, Op::glTranslatef, state, Placed::onProjection},
        {Op::glIsList, Op::glIsList, own},
        {Op::glDeleteLists, Op::glDeleteLists, defines},
        {Op::glGenLists, Op::glGenLists, own},
        {Op::glNewList, Op::glEndList, defines},
        {Op::glCallList, Op::glCallLists, draws},
        {Op::glListBase, Op::glListBase, state},
        {Op::glBegin, Op::glVertex4sv, draws},
        {Op::glNormal3b, Op::glTexCoord4sv, state},
        {Op::glRasterPos2d, Op::glRasterPos4sv, state, Placed::always},
        {Op::glRectd, Op::glInterleavedArrays, draws},
        {Op::glShadeModel, Op::glPixelStorei, state},
        {Op::glPixelTransferf, Op::glGetPixelMapusv, defines},
        {Op::glBitmap, Op::glCopyPixels, draws, Placed::always},
        {Op::glStencilFunc, Op::glGetTexEnviv, state},
        {Op::glTexParameterf, Op::glGetTexImage, defines},
        {Op::glGenTextures, Op::glGenTextures, own},
        {Op::glDeleteTextures, Op::glPrioritizeTextures, defines},
        {Op::glAreTexturesResident, Op::glIsTexture, own},
        {Op::glTexSubImage1D, Op::glCopyTexSubImage2D, defines},
        {Op::glMap1d, Op::glGetMapiv, state},
        {Op::glEvalCoord1d, Op::glEvalCoord2fv, draws},
        {Op::glMapGrid1d, Op::glMapGrid2f, state},
        {Op::glEvalPoint1, Op::glEvalMesh2, draws},
        {Op::glFogf, Op::glFogiv, state},
        {Op::glFeedbackBuffer, Op::glPopName, own},
        {Op::glDrawRangeElements, Op::glDrawRangeElements, draws},
        {Op::glTexImage3D, Op::glCopyTexSubImage3D, defines},
        {Op::glColorTable, Op::glGetSeparableFilter, state},
        {Op::glActiveTexture, Op::glActiveTexture, defines},
        {Op::glClientActiveTexture, Op::glClientActiveTexture, state},
        {Op::glCompressedTexImage1D, Op::glGetCompressedTexImage, defines},
        {Op::glMultiTexCoord1d, Op::glSampleCoverage, state},
        {Op::glActiveTextureARB, Op::glActiveTextureARB, defines},
        {Op::glClientActiveTextureARB, Op::glFogCoorddv, state},
        {Op::glFogCoordPointer, Op::glMultiDrawElements, draws},
        {Op::glPointParameterf, Op::glSecondaryColor3usv, state},
        {Op::glSecondaryColorPointer, Op::glSecondaryColorPointer, draws},
        {Op::glWindowPos2d, Op::glWindowPos3sv, state, Placed::always},
        {Op::glLoadTransposeMatrixfARB, Op::glMatrixIndexPointerARB, state},
        {Op::glWindowPos2dARB, Op::glWindowPos3svARB, state, Placed::always},
        {Op::glVertexAttrib1dARB, Op::glDisableVertexAttribArrayARB, state},
        {Op::glProgramStringARB, Op::glDeleteProgramsARB, defines},
        {Op::glGenProgramsARB, Op::glGenProgramsARB, own},
        {Op::glProgramEnvParameter4dARB, Op::glGetVertexAttribPointervARB, state},
        {Op::glIsProgramARB, Op::glIsProgramARB, own},
        {Op::glBlendColorEXT, Op::glPolygonOffsetEXT, state},
        {Op::glTexImage3DEXT, Op::glGenTexturesEXT, defines},
        {Op::glIsTextureEXT, Op::glGetSharpenTexFuncSGIS, own},
        {Op::glSampleMaskSGIS, Op::glSamplePatternSGIS, state},
        {Op::glArrayElementEXT, Op::glVertexPointerEXT, draws},
        {Op::glBlendEquationEXT, Op::glIndexFuncEXT, state},
        {Op::glLockArraysEXT, Op::glUnlockArraysEXT, own},
        {Op::glCullParameterdvEXT, Op::glLightEnviSGIX, state},
        {Op::glDrawRangeElementsEXT, Op::glDrawRangeElementsEXT, draws},
        {Op::glApplyTextureEXT, Op::glTextureNormalEXT, state},
        {Op::glMultiDrawArraysEXT, Op::glMultiDrawElementsEXT, draws},
        {Op::glFogCoordfEXT, Op::glReplacementCodePointerSUN, state},
        {Op::glColor4ubVertex2fSUN, Op::glReplacementCodeuiTexCoord2fColor4fNormal3fVertex3fvSUN,
         draws},
        {Op::glBlendFuncSeparateEXT, Op::glResizeBuffersMESA, state},
        {Op::glWindowPos2dMESA, Op::glVertexPointerListQZR, state, Placed::always},
        {Op::glTbufferMask3DFX, Op::glTracePointerRangeMESA, state},
        {Op::glXChooseVisual, Op::glXQueryVersion, own},
        {Op::glXSwapBuffers, Op::glXSwapBuffers, draws},
        {Op::glXUseXFont, Op::MWRaiseWindow, own},
    });
}();

// Without a gap, so that no operation is without a row.
static_assert([] {
    int next = 0;
    for (const OperationRow& row : operationRows) {
        if (indexOf(row.first) != next || row.last < row.first)
            return false;
        next = indexOf(row.last) + 1;
    }
    return next == operationCount;
}());

/// By opcode.
inline constexpr auto rowsByOperation = [] {
    std::array<OperationRow, operationCount> all{};
    for (const OperationRow& row : operationRows)
        for (int op = indexOf(row.first); op <= indexOf(row.last); ++op)
            all[static_cast<std::size_t>(op)] = row;
    return all;
}();
constexpr const OperationRow& rowOf(Op op)
{
    return rowsByOperation[static_cast<std::size_t>(indexOf(op))];
}

template <Op op>
inline constexpr Effect effectOf = rowOf(op).effect;
