#version 460
// Boxes: shading of the hit found by entity_box.rint.
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
