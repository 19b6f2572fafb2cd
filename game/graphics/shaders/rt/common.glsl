// Shared by the hit shaders: the ray payload and the hit attributes of
// procedural geometry (boxes, spheres, plasma) found by an intersection shader.
#extension GL_EXT_ray_tracing : require

struct RayPayload {
    vec3 color;      // surface colour at the hit
    float distance;  // along the ray, -1 for a miss
    vec3 normal;     // world-space surface normal
    uint aimID;      // what the ray hit, for aiming; 0 for nothing
};

struct ProceduralHit {
    vec3 normal;     // object-space normal at the hit
};

// A flat shade from the instance's custom index, so neighbours tell apart.
vec3 InstanceColor(uint index)
{
    uint h = index * 2654435761u;
    return vec3(float(h & 255u), float((h >> 8) & 255u), float((h >> 16) & 255u)) / 255.0 * 0.6 + 0.3;
}
