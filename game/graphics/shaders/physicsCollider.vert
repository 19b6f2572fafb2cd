#version 460
// Debug geometry of physics colliders: positions in the floating frame, read by
// device address, drawn with the camera's view and projection.
#extension GL_EXT_buffer_reference : require

layout(buffer_reference, std430, buffer_reference_align = 4) readonly buffer Vertices {
    float xyz[];
};

layout(push_constant) uniform Collider {
    mat4 viewProjection; // floating frame to clip space
    Vertices vertices;   // three floats per vertex
    uint pad0;
    uint pad1;
    vec4 color;          // straight alpha
} collider;

layout(location = 0) out vec4 vColor;

void main()
{
    uint i = uint(gl_VertexIndex) * 3u;
    vec3 position = vec3(collider.vertices.xyz[i], collider.vertices.xyz[i + 1u], collider.vertices.xyz[i + 2u]);
    gl_Position = collider.viewProjection * vec4(position, 1.0);
    vColor = collider.color;
}
