#version 460
// Plasma trails stirred by their noise fields (see plasma_frag.glsl).
#extension GL_GOOGLE_include_directive : require
#define TEXTURED
#include "plasma_frag.glsl"
