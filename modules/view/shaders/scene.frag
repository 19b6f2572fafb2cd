#version 460
// The scene's shading with the texture table (see scene_frag.glsl).
#extension GL_GOOGLE_include_directive : require
#define TEXTURED
#include "scene_frag.glsl"
