#version 460
// The scene's shading without textures (see scene_frag.glsl).
#extension GL_GOOGLE_include_directive : require
#include "scene_frag.glsl"
