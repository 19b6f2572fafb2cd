#version 460
// The sky behind the scene, with the sun's disc.
#extension GL_GOOGLE_include_directive : require
#include "scene.glsl"
#include "sky.glsl"

layout(location = 0) in vec3 vDirection;
layout(location = 1) flat in vec3 vSun;
layout(location = 0) out vec4 outColor;
layout(location = 1) out uvec4 outAim; // nothing to aim at

void main()
{
    vec3 direction = normalize(vDirection);
    vec3 color = SkyRadiance(direction);
    if (frame.sunDirection.w > 0.0 && dot(direction, vSun) > 0.9995) color += frame.sunColor.rgb;
    outColor = vec4(Encode(color), 1.0);
    outAim = uvec4(0u);
}
