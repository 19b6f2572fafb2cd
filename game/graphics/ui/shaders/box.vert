#version 460
// A box of the retained interface: four corners of a strip, made from the
// push-constant block. Sizes are measured against the screen's height.

layout(constant_id = 0) const float screenWidth = 1280.0;
layout(constant_id = 1) const float screenHeight = 720.0;

layout(push_constant) uniform Box {
    vec4 color;
    vec2 position;
    vec2 size;
    uint icon;
} box;

layout(location = 0) out vec4 vColor;
layout(location = 1) out vec2 vLocal; // 0 to 1 across the box, y down
layout(location = 2) flat out uint vIcon;

void main()
{
    vec2 corner = vec2(gl_VertexIndex & 1, gl_VertexIndex >> 1);
    vec2 halfExtent = 0.5 * box.size * vec2(screenHeight / screenWidth, 1.0);
    gl_Position = vec4(box.position + (corner * 2.0 - 1.0) * halfExtent, 0.0, 1.0);
    vColor = box.color;
    vLocal = corner;
    vIcon = box.icon;
}
