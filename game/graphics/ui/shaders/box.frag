#version 460
// The box's colour; an icon is a character of the monospace font atlas in its
// middle, black on light boxes and white on dark ones.

layout(constant_id = 0) const float screenWidth = 1280.0;
layout(constant_id = 1) const float screenHeight = 720.0;

layout(set = 0, binding = 0) uniform sampler2D fontAtlas; // texture 0 of the renderer's table

layout(location = 0) in vec4 vColor;
layout(location = 1) in vec2 vLocal;
layout(location = 2) flat in uint vIcon;
layout(location = 0) out vec4 outColor;

void main()
{
    outColor = vColor;
    if (vIcon == 0u || vIcon > 255u)
        return;
    // The glyph's cell, 80 % of the box's height, centred; the box's shape in
    // pixels comes from the derivatives of vLocal.
    vec2 pixels = 1.0 / max(fwidth(vLocal), vec2(1e-6));
    vec2 cellSize = vec2(textureSize(fontAtlas, 0)) / 16.0;
    float cellHeight = 0.8 * pixels.y;
    vec2 cellPixels = vec2(cellHeight * cellSize.x / cellSize.y, cellHeight);
    vec2 inCell = ((vLocal - 0.5) * pixels) / cellPixels + 0.5;
    if (any(lessThan(inCell, vec2(0.0))) || any(greaterThan(inCell, vec2(1.0))))
        return;
    vec2 cell = vec2(vIcon % 16u, vIcon / 16u);
    float ink = texture(fontAtlas, (cell + inCell) / 16.0).a;
    float luminance = dot(vColor.rgb, vec3(0.299, 0.587, 0.114));
    vec3 inkColor = luminance > 0.5 ? vec3(0.0) : vec3(1.0);
    outColor = vec4(mix(vColor.rgb, inkColor, ink), max(vColor.a, ink));
}
