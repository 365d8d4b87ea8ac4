// The synthetic command streams: each a short pattern of operations, written once and used twice,
// as records of a stream and as plain calls through the operation table.
#pragma once

#include "client/encoder.h"

/// Names an operation in a pattern: pattern bodies call `call(op<Op::glEnd>)`.
template <Op o>
inline constexpr std::integral_constant<Op, o> op{};

inline constexpr GLubyte red[4] = {255, 0, 0, 255};
inline constexpr GLfloat up[4] = {0, 0, 1, 0};
inline constexpr GLfloat corners[3][2] = {{0, 0}, {1, 0}, {0, 1}};
inline constexpr GLfloat vertices[3][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
inline constexpr GLfloat identityf[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
inline constexpr GLdouble identityd[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

/// One triangle in immediate mode: 14 operations.
struct ImmediateMode {
    static constexpr char name[] = "immediate mode";
    template <class Call>
    static void pattern(Call call)
    {
        call(op<Op::glBegin>, GLenum{GL_TRIANGLES});
        for (int i = 0; i < 3; ++i) {
            call(op<Op::glColor4ub>, red[0], red[1], red[2], red[3]);
            call(op<Op::glNormal3f>, up[0], up[1], up[2]);
            call(op<Op::glTexCoord2f>, corners[i][0], corners[i][1]);
            call(op<Op::glVertex3f>, vertices[i][0], vertices[i][1], vertices[i][2]);
        }
        call(op<Op::glEnd>);
    }
};

/// The same with the vector forms.
struct VectorForms {
    static constexpr char name[] = "vector forms";
    template <class Call>
    static void pattern(Call call)
    {
        call(op<Op::glBegin>, GLenum{GL_TRIANGLES});
        for (int i = 0; i < 3; ++i) {
            call(op<Op::glColor4ubv>, &red[0]);
            call(op<Op::glNormal3fv>, &up[0]);
            call(op<Op::glTexCoord2fv>, &corners[i][0]);
            call(op<Op::glVertex3fv>, &vertices[i][0]);
        }
        call(op<Op::glEnd>);
    }
};

/// The state changes between two objects: 22 operations.
struct StateChanges {
    static constexpr char name[] = "state changes";
    template <class Call>
    static void pattern(Call call)
    {
        call(op<Op::glEnable>, GLenum{GL_BLEND});
        call(op<Op::glBlendFunc>, GLenum{GL_SRC_ALPHA}, GLenum{GL_ONE_MINUS_SRC_ALPHA});
        call(op<Op::glDepthMask>, GLboolean{GL_FALSE});
        call(op<Op::glDisable>, GLenum{GL_LIGHTING});
        call(op<Op::glShadeModel>, GLenum{GL_FLAT});
        call(op<Op::glLineWidth>, 2.0F);
        call(op<Op::glLineStipple>, 1, GLushort{0x0F0F});
        call(op<Op::glPolygonMode>, GLenum{GL_FRONT_AND_BACK}, GLenum{GL_LINE});
        call(op<Op::glPolygonOffset>, 1.0F, 1.0F);
        call(op<Op::glColorMask>, GLboolean{1}, GLboolean{1}, GLboolean{1}, GLboolean{0});
        call(op<Op::glAlphaFunc>, GLenum{GL_GREATER}, 0.5F);
        call(op<Op::glEnable>, GLenum{GL_TEXTURE_2D});
        call(op<Op::glTexEnvi>, GLenum{GL_TEXTURE_ENV}, GLenum{GL_TEXTURE_ENV_MODE}, GL_MODULATE);
        call(op<Op::glBindTexture>, GLenum{GL_TEXTURE_2D}, GLuint{1});
        call(op<Op::glTexParameteri>, GLenum{GL_TEXTURE_2D}, GLenum{GL_TEXTURE_MIN_FILTER},
             GL_NEAREST);
        call(op<Op::glMaterialfv>, GLenum{GL_FRONT}, GLenum{GL_DIFFUSE}, &up[0]);
        call(op<Op::glMaterialf>, GLenum{GL_FRONT}, GLenum{GL_SHININESS}, 10.0F);
        call(op<Op::glLightfv>, GLenum{GL_LIGHT0}, GLenum{GL_POSITION}, &up[0]);
        call(op<Op::glEnable>, GLenum{GL_LIGHTING});
        call(op<Op::glDepthFunc>, GLenum{GL_LEQUAL});
        call(op<Op::glCullFace>, GLenum{GL_BACK});
        call(op<Op::glFrontFace>, GLenum{GL_CCW});
    }
};

/// One object's place in a scene: 11 operations.
struct MatrixOperations {
    static constexpr char name[] = "matrix operations";
    template <class Call>
    static void pattern(Call call)
    {
        call(op<Op::glMatrixMode>, GLenum{GL_MODELVIEW});
        call(op<Op::glPushMatrix>);
        call(op<Op::glLoadIdentity>);
        call(op<Op::glTranslatef>, 1.0F, 2.0F, 3.0F);
        call(op<Op::glRotatef>, 30.0F, 0.0F, 0.0F, 1.0F);
        call(op<Op::glScalef>, 2.0F, 2.0F, 2.0F);
        call(op<Op::glMultMatrixf>, &identityf[0]);
        call(op<Op::glTranslated>, 1.0, 2.0, 3.0);
        call(op<Op::glRotated>, 30.0, 0.0, 0.0, 1.0);
        call(op<Op::glLoadMatrixd>, &identityd[0]);
        call(op<Op::glPopMatrix>);
    }
};

/// Appends one pattern to a stream.
template <class Stream>
void encodePattern(CommandBuffer& out)
{
    Stream::pattern([&out]<Op o>(std::integral_constant<Op, o>, auto... arguments) {
        encode<o>(out, arguments...);
    });
}

/// Makes the calls of one pattern through the operation table.
template <class Stream>
void performPattern()
{
    Stream::pattern(
        []<Op o>(std::integral_constant<Op, o>, auto... arguments) { perform<o>(arguments...); });
}
