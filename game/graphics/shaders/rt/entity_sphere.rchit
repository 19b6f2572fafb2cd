#version 460
// Spheres: shading of the hit found by entity_sphere.rint.
#include "common.glsl"

layout(location = 0) rayPayloadInEXT RayPayload payload;
hitAttributeEXT ProceduralHit hit;

void main()
{
    payload.distance = gl_HitTEXT;
    payload.color = InstanceColor(gl_InstanceCustomIndexEXT);
    payload.normal = normalize((hit.normal * mat3(gl_WorldToObjectEXT)).xyz);
    payload.aimID = 0u;
}
