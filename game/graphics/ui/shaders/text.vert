#version 460
// A line of the retained interface: one point sprite per character (the
// instance), as tall as a character cell, placed along the line centred on
// the block's position.

layout(constant_id = 0) const float screenWidth = 1280.0;
layout(constant_id = 1) const float screenHeight = 720.0;

layout(set = 0, binding = 0) uniform sampler2D fontAtlas; // texture 0 of the renderer's table

layout(push_constant) uniform Text {
    vec4 color;
    vec2 position;
    float size;
    uint count; // characters in use
    uint zero;
    uint characters[23]; // 92 bytes, four to a word, first in the low byte
} text;

layout(location = 0) out vec4 vColor;
layout(location = 1) flat out uint vCharacter;
layout(location = 2) flat out float vCellAspect; // width over height

void main()
{
    uint i = uint(gl_InstanceIndex);
    vCharacter = (text.characters[i / 4u] >> (8u * (i % 4u))) & 0xffu;
    vec2 cellSize = vec2(textureSize(fontAtlas, 0)) / 16.0;
    vCellAspect = cellSize.x / cellSize.y;
    float cellHeight = text.size; // in the height's units: y spans 2 across the screen
    float advance = cellHeight * vCellAspect * screenHeight / screenWidth;
    float x = text.position.x + (float(i) + 0.5 - 0.5 * float(text.count)) * advance;
    gl_Position = vec4(x, text.position.y, 0.0, 1.0);
    gl_PointSize = max(1.0, cellHeight * 0.5 * screenHeight);
    vColor = text.color;
}
