#version 460
// Debug geometry of physics colliders: positions relative to the camera and a
// packed colour per vertex, read by device address, drawn with the camera's
// rotation and projection.
#extension GL_EXT_buffer_reference : require
#extension GL_EXT_shader_explicit_arithmetic_types_int64 : require

layout(buffer_reference, std430, buffer_reference_align = 16) readonly buffer Vertices {
    vec4 v[]; // xyz, and the colour's RGBA8 bits in w
};

layout(push_constant) uniform Collider {
    mat4 viewProjection; // camera-relative world to clip space
    Vertices vertices;
} collider;

layout(location = 0) out vec4 vColor;

void main()
{
    vec4 vertex = collider.vertices.v[gl_VertexIndex];
    gl_Position = collider.viewProjection * vec4(vertex.xyz, 1.0);
    vColor = unpackUnorm4x8(floatBitsToUint(vertex.w));
}
