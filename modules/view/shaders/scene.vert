#version 460
// The scene's vertices (see scene_vert.glsl).
#extension GL_GOOGLE_include_directive : require
#include "scene_vert.glsl"
