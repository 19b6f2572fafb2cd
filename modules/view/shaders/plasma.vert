#version 460
// Plasma trails' vertices (see plasma_vert.glsl).
#extension GL_GOOGLE_include_directive : require
#include "plasma_vert.glsl"
