#version 460
// Plasma: an emissive glow whose strength grows with the depth of plasma crossed.
#include "common.glsl"

layout(location = 0) rayPayloadInEXT RayPayload payload;
hitAttributeEXT ProceduralHit hit;

void main()
{
    float depth = clamp(hit.normal.x, 0.0, 1.0);
    payload.distance = gl_HitTEXT;
    payload.color = vec3(0.4, 0.7, 1.0) * (0.5 + 2.0 * depth);
    payload.normal = -normalize(gl_WorldRayDirectionEXT);
    payload.aimID = 0u;
}
