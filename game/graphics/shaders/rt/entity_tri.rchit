#version 460
// Triangles of entity meshes.
#include "common.glsl"

layout(location = 0) rayPayloadInEXT RayPayload payload;
hitAttributeEXT vec2 barycentrics;

void main()
{
    payload.distance = gl_HitTEXT;
    payload.color = InstanceColor(gl_InstanceCustomIndexEXT);
    // Without the mesh at hand the face is lit as if it faced the ray.
    payload.normal = -normalize(gl_WorldRayDirectionEXT);
    payload.aimID = 0u;
}
