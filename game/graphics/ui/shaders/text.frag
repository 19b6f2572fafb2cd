#version 460
// One character from the monospace font atlas: the point sprite is square and
// as tall as a cell; the cell takes its middle part.

layout(set = 0, binding = 0) uniform sampler2D fontAtlas;

layout(location = 0) in vec4 vColor;
layout(location = 1) flat in uint vCharacter;
layout(location = 2) flat in float vCellAspect;
layout(location = 0) out vec4 outColor;

void main()
{
    vec2 p = gl_PointCoord;
    float u = (p.x - 0.5) / vCellAspect + 0.5;
    if (u < 0.0 || u > 1.0)
        discard;
    vec2 cell = vec2(vCharacter % 16u, vCharacter / 16u);
    float ink = texture(fontAtlas, (cell + vec2(u, p.y)) / 16.0).a;
    if (ink <= 0.0)
        discard;
    outColor = vec4(vColor.rgb, vColor.a * ink);
}
