#version 460
// Plasma trails without the texture table: smooth glows (see plasma_frag.glsl).
#extension GL_GOOGLE_include_directive : require
#include "plasma_frag.glsl"
