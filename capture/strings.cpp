#include "capture/strings.h"
#include "capture/reasons.h"
#include "capture/stream.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <string_view>

namespace {

// Extensions of OpenGL whose operations and parameters are on the wire, or translated here. Of
// framebuffer objects neither is, but toolkits draw their widgets by them and by nothing else; who
// draws into one is shown by pictures.
constexpr std::string_view openGLExtensions[] = {
    "GL_ARB_depth_texture",
    "GL_ARB_fragment_program",
    "GL_ARB_framebuffer_object",
    "GL_ARB_imaging",
    "GL_ARB_multisample",
    "GL_ARB_multitexture",
    "GL_ARB_occlusion_query",
    "GL_ARB_point_parameters",
    "GL_ARB_shadow",
    "GL_ARB_texture_border_clamp",
    "GL_ARB_texture_compression",
    "GL_ARB_texture_cube_map",
    "GL_ARB_texture_env_add",
    "GL_ARB_texture_env_combine",
    "GL_ARB_texture_env_crossbar",
    "GL_ARB_texture_env_dot3",
    "GL_ARB_texture_mirrored_repeat",
    "GL_ARB_texture_non_power_of_two",
    "GL_ARB_texture_rectangle",
    "GL_ARB_transpose_matrix",
    "GL_ARB_vertex_buffer_object",
    "GL_ARB_vertex_program",
    "GL_ARB_window_pos",
    "GL_ATI_texture_env_combine3",
    "GL_ATI_texture_mirror_once",
    "GL_EXT_abgr",
    "GL_EXT_bgra",
    "GL_EXT_blend_color",
    "GL_EXT_blend_func_separate",
    "GL_EXT_blend_minmax",
    "GL_EXT_blend_subtract",
    "GL_EXT_compiled_vertex_array",
    "GL_EXT_copy_texture",
    "GL_EXT_draw_range_elements",
    "GL_EXT_fog_coord",
    "GL_EXT_framebuffer_object",
    "GL_EXT_multi_draw_arrays",
    "GL_EXT_packed_pixels",
    "GL_EXT_point_parameters",
    "GL_EXT_polygon_offset",
    "GL_EXT_rescale_normal",
    "GL_EXT_secondary_color",
    "GL_EXT_separate_specular_color",
    "GL_EXT_stencil_wrap",
    "GL_EXT_subtexture",
    "GL_EXT_texture",
    "GL_EXT_texture3D",
    "GL_EXT_texture_compression_dxt1",
    "GL_EXT_texture_compression_s3tc",
    "GL_EXT_texture_cube_map",
    "GL_EXT_texture_edge_clamp",
    "GL_EXT_texture_env_add",
    "GL_EXT_texture_env_combine",
    "GL_EXT_texture_env_dot3",
    "GL_EXT_texture_filter_anisotropic",
    "GL_EXT_texture_lod_bias",
    "GL_EXT_texture_mirror_clamp",
    "GL_EXT_texture_object",
    "GL_EXT_texture_rectangle",
    "GL_EXT_vertex_array",
    "GL_IBM_rasterpos_clip",
    "GL_IBM_texture_mirrored_repeat",
    "GL_MESA_window_pos",
    "GL_NV_blend_square",
    "GL_NV_light_max_exponent",
    "GL_NV_texgen_reflection",
    "GL_NV_texture_rectangle",
    "GL_S3_s3tc",
    "GL_SGIS_generate_mipmap",
    "GL_SGIS_texture_border_clamp",
    "GL_SGIS_texture_edge_clamp",
    "GL_SGIS_texture_lod",
    "GL_SUN_multi_draw_arrays",
};

// And of GLX, whose contexts and drawables the library follows.
constexpr std::string_view glxExtensions[] = {
    "GLX_ARB_create_context",
    "GLX_ARB_create_context_profile",
    "GLX_ARB_get_proc_address",
    "GLX_ARB_multisample",
    "GLX_EXT_create_context_es2_profile",
    "GLX_EXT_create_context_es_profile",
    "GLX_EXT_framebuffer_sRGB",
    "GLX_ARB_framebuffer_sRGB",
    "GLX_EXT_swap_control",
    "GLX_EXT_swap_control_tear",
    "GLX_EXT_visual_info",
    "GLX_EXT_visual_rating",
    "GLX_MESA_query_renderer",
    "GLX_MESA_swap_control",
    "GLX_OML_swap_method",
    "GLX_SGIS_multisample",
    "GLX_SGIX_fbconfig",
    "GLX_SGIX_pbuffer",
    "GLX_SGI_make_current_read",
    "GLX_SGI_swap_control",
    "GLX_SGI_video_sync",
};

// A text that lives as long as the process, as the callers expect.
const char* kept(const std::string& text)
{
    static auto& all = *new std::set<std::string>;
    const std::lock_guard lock(textsLock);
    return all.insert(text).first->c_str();
}

template <std::size_t n>
const char* carried(const std::string_view (&list)[n], const char* native)
{
    if (!native)
        return nullptr;
    std::istringstream words(native);
    std::string result;
    for (std::string word; words >> word;)
        if (std::find(std::begin(list), std::end(list), word) != std::end(list) &&
            (captureOptions.showing != Showing::calls || !word.ends_with("framebuffer_object")))
            result += (result.empty() ? "" : " ") + word;
    return kept(result);
}

} // namespace

const GLubyte* carriedString(GLenum name, const GLubyte* native)
{
    const auto* text = reinterpret_cast<const char*>(native);
    if (!text)
        return nullptr;
    switch (name) {
    case GL_VERSION: { // "1.5", and what the library says of itself behind its own version
        const char* behind = std::strchr(text, ' ');
        text = kept(std::to_string(carriedMajor) + "." + std::to_string(carriedMinor) +
                    (behind ? behind : ""));
        break;
    }
    case GL_EXTENSIONS:
        text = carried(openGLExtensions, text);
        break;
    case GL_SHADING_LANGUAGE_VERSION:
        return nullptr;
    default:
        break;
    }
    return reinterpret_cast<const GLubyte*>(text);
}

const char* carriedGlxExtensions(const char* native) { return carried(glxExtensions, native); }

bool isCarried(const AskedVersion& asked, bool& asPicture)
{
    const bool byCalls = std::strcmp(asked.api, "OpenGL") == 0 && asked.major == carriedMajor &&
                         asked.minor <= carriedMinor && !asked.core;
    asPicture = captureOptions.showing == Showing::pictures || !byCalls;
    if (byCalls || captureOptions.showing == Showing::pictures)
        return true;
    const bool refused = captureOptions.showing == Showing::calls;
    static_assert(carriedMajor == 1 && carriedMinor == 5); // as the texts say
    tell(refused ? Reason::refusedContext
                 : Reason::pictureContext, // of all versions that are tried
         std::string(asked.api) + " " + std::to_string(asked.major) + "." +
             std::to_string(asked.minor) + (asked.core ? " core" : ""));
    return !refused;
}
