#version 460
// One triangle over the whole output, at the far end of the depth range: drawn
// after the scene, it fills only the pixels the scene left empty.
#extension GL_GOOGLE_include_directive : require
#include "scene.glsl"

// The world direction through each corner, unnormalised: it is linear over the
// screen, so the pixels get theirs by interpolation. The sun in world axes.
layout(location = 0) out vec3 vDirection;
layout(location = 1) flat out vec3 vSun;

void main()
{
    vec2 clip = vec2(float((gl_VertexIndex << 1) & 2), float(gl_VertexIndex & 2)) * 2.0 - 1.0;
    vec3 view = vec3(clip.x / frame.projection[0][0], clip.y / frame.projection[1][1], -1.0);
    vDirection = mat3(frame.cameraToWorld) * view;
    vSun = mat3(frame.cameraToWorld) * frame.sunDirection.xyz;
    gl_Position = vec4(clip, 0.0, 1.0);
}
