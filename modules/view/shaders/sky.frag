#version 460
// The sky behind the scene, with the sun's disc.
#extension GL_GOOGLE_include_directive : require
#include "scene.glsl"
#include "sky.glsl"

layout(location = 0) in vec2 vClip;
layout(location = 0) out vec4 outColor;

void main()
{
    // The camera-space direction through this pixel, from the projection's scale.
    vec3 view = normalize(vec3(vClip.x / frame.projection[0][0], vClip.y / frame.projection[1][1], -1.0));
    vec3 direction = mat3(frame.cameraToWorld) * view;
    vec3 color = SkyRadiance(direction);
    if (frame.sunDirection.w > 0.0) {
        vec3 sun = mat3(frame.cameraToWorld) * frame.sunDirection.xyz;
        if (dot(direction, sun) > 0.9995) color += frame.sunColor.rgb;
    }
    outColor = vec4(Encode(color), 1.0);
}
